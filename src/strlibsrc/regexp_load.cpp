// The walk from node to node. A node gets its first instruction when it is first referred to, and its content
// when its turn comes, so neither loops nor long chains make the walk recurse. Characters are numbered in the
// walk; their symbols are known only at its end.
#include "strlibsrc/regexp_program.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kel::detail {

class program_loader {
public:
    program_loader(regexp_program &result, const regexp &from, encoding form)
        : m_result(result),
          m_from(from),
          m_bytes(from.program),
          m_size(from.programSize),
          m_entry(m_size, unknown),
          m_characters(form) {}

    stErrorCode run() {
        // Most nodes take four bytes or more.
        m_result.m_code.reserve(m_size / 4 + 4);
        m_set_characters.reserve(m_size / 2);
        m_pending.reserve(16);
        refer(1);
        while (m_error == stSuccess && !m_pending.empty()) {
            const std::uint32_t at = m_pending.back();
            m_pending.pop_back();
            read_node(at);
        }
        if (m_error == stSuccess) check_progress();
        if (m_error == stSuccess) finish();
        return m_error;
    }

private:
    static constexpr std::uint32_t unknown = 0xFFFFFFFF;
    static constexpr std::uint32_t header = 3;

    unsigned byte(std::uint32_t at) const { return static_cast<unsigned char>(m_bytes[at]); }
    void fail(stErrorCode code) {
        if (m_error == stSuccess) m_error = code;
    }
    instruction &at(std::uint32_t number) { return m_result.m_code[number]; }
    std::uint32_t add(instruction one) {
        m_result.m_code.push_back(one);
        return static_cast<std::uint32_t>(m_result.m_code.size() - 1);
    }

    // The first instruction of the node at `offset`.
    std::uint32_t refer(std::uint32_t offset) {
        if (offset > m_size || m_size - offset < header) {
            fail(stCorruptedPointers);
            return 0;
        }
        if (m_entry[offset] == unknown) {
            m_entry[offset] = add({});
            m_pending.push_back(offset);
        }
        return m_entry[offset];
    }

    // Where the link of a node leads; 0 for nowhere.
    std::uint32_t follow(std::uint32_t offset) {
        const std::uint32_t distance = byte(offset + 1) << 8 | byte(offset + 2);
        if (distance == 0) return 0;
        const bool backwards = byte(offset) == REOP_BACK;
        if (distance > 0x7FFF || (backwards ? distance >= offset : m_size - offset < header + distance)) {
            fail(stCorruptedPointers);
            return 0;
        }
        return backwards ? offset - distance : offset + distance;
    }

    std::uint32_t next_of(std::uint32_t offset) {
        const std::uint32_t next = follow(offset);
        if (next == 0) {
            fail(stCorruptedPointers);
            return 0;
        }
        return refer(next);
    }

    // Nodes that share bytes could make the work grow with the square of the program.
    void account(std::uint32_t bytes) {
        m_used += bytes;
        if (m_used > m_size) fail(stCorruptedRegExp);
    }

    // The operand text behind the header at `offset`, without its terminator; null when it has none.
    const char *operand(std::uint32_t offset, const char *&end) {
        const char *begin = m_bytes + offset + header;
        end = static_cast<const char *>(std::memchr(begin, 0, m_size - offset - header));
        if (end == nullptr) {
            fail(stCorruptedRegExp);
            return nullptr;
        }
        account(static_cast<std::uint32_t>(end - begin) + 1);
        return begin;
    }

    void read_node(std::uint32_t offset) {
        account(header);
        const std::uint32_t entry = m_entry[offset];
        const unsigned code = byte(offset);
        switch (code) {
            case REOP_END:
                at(entry).what = instruction::success;
                return;
            case REOP_BOL:
                set_simple(entry, instruction::line_begin, next_of(offset));
                return;
            case REOP_EOL:
                set_simple(entry, instruction::line_end, next_of(offset));
                return;
            case REOP_NOTHING:
            case REOP_BACK:
                set_simple(entry, instruction::jump, next_of(offset));
                return;
            case REOP_BRANCH:
                read_branch(offset, entry);
                return;
            case REOP_EXACTLY:
                read_text(offset, entry, next_of(offset));
                return;
            case REOP_STAR:
            case REOP_PLUS:
                read_repetition(offset, entry);
                return;
            case REOP_ANY:
            case REOP_ANYOF:
            case REOP_ANYBUT:
                read_simple(offset, entry, next_of(offset));
                return;
            default:
                read_group(offset, entry);
                return;
        }
    }

    void set_simple(std::uint32_t entry, instruction::kind what, std::uint32_t next) {
        at(entry) = {what, next, 0};
    }

    void read_group(std::uint32_t offset, std::uint32_t entry) {
        const unsigned code = byte(offset);
        const bool open = code > REOP_OPEN && code <= REOP_OPEN + 9;
        if (!open && !(code > REOP_CLOSE && code <= REOP_CLOSE + 9)) return fail(stCorruptedRegExp);
        const std::uint32_t group = code - (open ? REOP_OPEN : REOP_CLOSE);
        m_result.m_slots = std::max<std::size_t>(m_result.m_slots, 2 * group + 2);
        const std::uint32_t next = next_of(offset);
        at(entry) = {instruction::save, next, 2 * group + (open ? 0 : 1)};
    }

    void read_branch(std::uint32_t offset, std::uint32_t entry) {
        const std::uint32_t next = follow(offset);
        if (next == 0) return fail(stCorruptedPointers);
        const std::uint32_t first = refer(offset + header);
        if (byte(next) != REOP_BRANCH) return set_simple(entry, instruction::jump, first);
        const std::uint32_t second = refer(next);
        at(entry) = {instruction::split, first, second};
    }

    void read_text(std::uint32_t offset, std::uint32_t entry, std::uint32_t next) {
        const char *end = nullptr;
        const char *text = operand(offset, end);
        if (text == nullptr) return;
        // Only the terminator of the subject has the same first character.
        if (text == end) return set_simple(entry, instruction::line_end, next);
        std::uint32_t last = entry;
        while (true) {
            set_character(last, text, end);
            if (text == end) break;
            const std::uint32_t following = add({});
            at(last).next = following;
            last = following;
        }
        at(last).next = next;
    }

    // The character at `text`, which moves behind it.
    void set_character(std::uint32_t entry, const char *&text, const char *end) {
        const std::uint32_t number = m_characters.name(text, end);
        at(entry).value = number;
        at(entry).what = number == alphabet_builder::invalid ? instruction::none : instruction::character;
    }

    // One node that takes one character, in the chain or under a repetition.
    void read_simple(std::uint32_t offset, std::uint32_t entry, std::uint32_t next) {
        switch (byte(offset)) {
            case REOP_ANY:
                return set_simple(entry, instruction::any, next);
            case REOP_ANYOF:
            case REOP_ANYBUT: {
                const bool inverse = byte(offset) == REOP_ANYBUT;
                at(entry) = {inverse ? instruction::inverse_set : instruction::set, next, read_set(offset)};
                return;
            }
            case REOP_EXACTLY: {
                const char *end = nullptr;
                const char *text = operand(offset, end);
                at(entry).next = next;
                if (text != nullptr && text != end) set_character(entry, text, end);
                return;
            }
            default:
                return fail(stCorruptedRegExp);
        }
    }

    std::uint32_t read_set(std::uint32_t offset) {
        const char *end = nullptr;
        const char *text = operand(offset, end);
        const std::size_t begin = m_set_characters.size();
        while (text != end) {
            const std::uint32_t number = m_characters.name(text, end);
            if (number != alphabet_builder::invalid) m_set_characters.push_back(number);
        }
        const auto first = m_set_characters.begin() + static_cast<std::ptrdiff_t>(begin);
        std::sort(first, m_set_characters.end());
        m_set_characters.erase(std::unique(first, m_set_characters.end()), m_set_characters.end());
        m_set_ends.push_back(m_set_characters.size());
        return static_cast<std::uint32_t>(m_set_ends.size() - 1);
    }

    // A split that leads to the repeated instruction or onwards; a repetition of 1 or more enters behind it.
    void read_repetition(std::uint32_t offset, std::uint32_t entry) {
        const std::uint32_t repeated = offset + header;
        const std::uint32_t next = next_of(offset);
        if (m_size - repeated < header) return fail(stCorruptedPointers);
        account(header);
        const std::uint32_t more = add({});
        const bool star = byte(offset) == REOP_STAR;
        const std::uint32_t loop = star ? entry : more;
        const std::uint32_t one = star ? more : entry;
        at(loop) = {instruction::split, one, next};
        read_simple(repeated, one, loop);
    }

    // Whether every way around a loop takes a character: a depth-first walk over the steps that take none.
    void check_progress() {
        enum state : char { fresh, open, closed };
        std::vector<char> states(m_result.m_code.size(), fresh);
        std::vector<std::pair<std::uint32_t, int>> stack;
        stack.reserve(16);
        m_result.m_passers.reserve(states.size());
        for (std::uint32_t root = 0; root < states.size(); ++root) {
            if (states[root] != fresh) continue;
            stack.emplace_back(root, 0);
            states[root] = open;
            while (!stack.empty()) {
                auto &[number, step] = stack.back();
                const instruction &each = at(number);
                const int steps = each.what == instruction::split ? 2 : each.what > instruction::none ? 1 : 0;
                if (step == steps) {
                    states[number] = closed;
                    if (!each.takes_character()) m_result.m_passers.push_back(number);
                    stack.pop_back();
                    continue;
                }
                const std::uint32_t to = step++ == 0 ? each.next : each.value;
                if (states[to] == open) return fail(stCorruptedPointers);
                if (states[to] == closed) continue;
                states[to] = open;
                stack.emplace_back(to, 0);
            }
        }
    }

    void finish() {
        std::size_t begin = 0;
        for (const std::size_t end : m_set_ends) {
            m_characters.separate(m_set_characters.data() + begin, end - begin);
            begin = end;
        }
        for (const instruction &each : m_result.m_code)
            if (each.what == instruction::character) m_characters.separate(&each.value, 1);
        m_result.m_alphabet = std::move(m_characters).finish();
        for (instruction &each : m_result.m_code)
            if (each.what == instruction::character) each.value = m_result.m_alphabet.of_named(each.value);
        finish_sets();
        m_result.make_masks();
        finish_first();
        m_result.m_anchored = m_from.anchored != 0;
    }

    void finish_sets() {
        std::vector<symbol> &symbols = m_result.m_set_symbols;
        symbols.reserve(m_set_characters.size());
        m_result.m_set_begin.assign(1, 0);
        std::size_t at_character = 0;
        for (const std::size_t end : m_set_ends) {
            const auto begin = static_cast<std::ptrdiff_t>(symbols.size());
            for (; at_character < end; ++at_character)
                symbols.push_back(m_result.m_alphabet.of_named(m_set_characters[at_character]));
            std::sort(symbols.begin() + begin, symbols.end());
            symbols.erase(std::unique(symbols.begin() + begin, symbols.end()), symbols.end());
            m_result.m_set_begin.push_back(static_cast<std::uint32_t>(symbols.size()));
        }
    }

    // A compiled pattern's first character is the beginning of its first text, and the program asks for it.
    void finish_first() {
        const std::size_t length = std::strlen(m_from.firstChar);
        if (length == 0) return;
        constexpr std::uint32_t first = 1 + header;
        const std::uint32_t second = follow(1);
        const bool implied = byte(1) == REOP_BRANCH && byte(second) != REOP_BRANCH &&
                             byte(first) == REOP_EXACTLY && m_size - first - header > length &&
                             std::memcmp(m_bytes + first + header, m_from.firstChar, length) == 0;
        if (!implied) m_result.m_extra_first.assign(m_from.firstChar, length);
    }

    regexp_program &m_result;
    const regexp &m_from;
    const char *m_bytes;
    const std::uint32_t m_size;
    std::vector<std::uint32_t> m_entry;    // of a node by its offset: its first instruction
    std::vector<std::uint32_t> m_pending;  // offsets of nodes that have no content yet
    alphabet_builder m_characters;
    std::vector<std::uint32_t> m_set_characters;  // of all sets, one behind the other
    std::vector<std::size_t> m_set_ends;
    std::uint32_t m_used = 0;
    stErrorCode m_error = stSuccess;
};

stErrorCode regexp_program::load(const regexp &from, encoding form) {
    return program_loader(*this, from, form).run();
}

}  // namespace kel::detail
