// The compiler of the expressions: two passes of one parser, the first of which only counts bytes.
//
// A chain of nodes is kept as its first and last node, so nothing walks a chain to find its end; the ends of
// the branches of an expression, which all lead to a node that comes later, are a list threaded through their
// own links until that node is there. So the work is linear, apart from the bytes that repeated groups move,
// at most once for each of the nine levels.
#include <kelstdmt/regexp.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include <kelstdmt/xtypes.h>

#include "runtime/characters.h"

namespace {

constexpr unsigned too_big = 65535;       // bytes of a program
constexpr unsigned longest_link = 32767;  // bytes
constexpr unsigned node_bytes = 3;        // of an opcode and its link
constexpr unsigned most_groups = 9;
constexpr std::string_view metacharacters = "^$.[()|?+*\\";

// Of a piece, a branch or an expression.
constexpr unsigned has_width = 1;     // matches one character at least
constexpr unsigned simple = 2;        // one node that matches exactly one character
constexpr unsigned repeat_start = 4;  // begins with a repetition: mustText is worth its while

struct failure {
    stErrorCode code;
    const char *at = nullptr;  // null: where the parser stands
};

struct chain {
    unsigned first, last;  // nodes
    unsigned flags;
};

bool is_multiplier(char c) {
    return c == '*' || c == '+' || c == '?';
}

struct character {
    unsigned bytes;  // 0: invalid
    std::uint32_t value;
};

// The character at `at`, which lies before `end`.
character decode(const char *at, const char *end) {
    if (static_cast<unsigned char>(*at) < 0x80) return {1, static_cast<unsigned char>(*at)};
    std::mbstate_t state{};
    wchar_t value = 0;
    const std::size_t bytes = std::min(kel::detail::longest_character, static_cast<std::size_t>(end - at));
    const std::size_t used = std::mbrtowc(&value, at, bytes, &state);
    if (used == 0 || used > bytes) return {0, 0};
    return {static_cast<unsigned>(used), static_cast<std::uint32_t>(value)};
}

std::size_t encode(std::uint32_t value, char *out) {
    std::mbstate_t state{};
    const std::size_t used = std::wcrtomb(out, static_cast<wchar_t>(value), &state);
    return used == static_cast<std::size_t>(-1) ? 0 : used;
}

// Which values are characters of the locale. Asked once for a value, because a pattern can name wide ranges
// that hold few characters as often as it likes.
class known_characters {
public:
    // The first character from `value` on; beyond `last` when there is none up to there.
    std::uint32_t next(std::uint32_t value, std::uint32_t last) {
        while (value >= 0x80 && value <= last) {
            const std::uint64_t left = page(value / in_page) >> (value % in_page);
            if (left) return value + static_cast<unsigned>(std::countr_zero(left));
            value = (value / in_page + 1) * in_page;
        }
        return value;
    }

private:
    static constexpr std::uint32_t in_page = 64;

    std::uint64_t page(std::uint32_t number) {
        if (number >= m_pages.size()) {
            m_pages.resize(number + 1);
            m_known.resize(number + 1);
        }
        if (!m_known[number]) {
            char bytes[MB_LEN_MAX];
            for (std::uint32_t bit = 0; bit < in_page; bit++)
                if (encode(number * in_page + bit, bytes)) m_pages[number] |= std::uint64_t{1} << bit;
            m_known[number] = true;
        }
        return m_pages[number];
    }

    std::vector<std::uint64_t> m_pages;
    std::vector<bool> m_known;
};

unsigned link_bytes(const char *node) {
    return static_cast<unsigned char>(node[1]) * 256u + static_cast<unsigned char>(node[2]);
}

// Counts the bytes of a program, or writes them once it has room for them.
class program_writer {
public:
    unsigned size() const { return m_size; }
    bool full() const { return m_size >= too_big; }

    void begin(char *program, unsigned room) {
        m_program = program;
        m_room = room;
        m_size = 0;
    }

    void put(const char *bytes, std::size_t count) {
        if (!m_program) {
            m_size += static_cast<unsigned>(std::min<std::size_t>(count, too_big - m_size));
            return;
        }
        require(count);
        std::memcpy(m_program + m_size, bytes, count);
        m_size += static_cast<unsigned>(count);
    }
    void put(char byte) { put(&byte, 1); }

    unsigned node(unsigned opcode) {
        const unsigned at = m_size;
        const char bytes[node_bytes] = {static_cast<char>(opcode), 0, 0};
        put(bytes, sizeof bytes);
        return at;
    }

    // A node before the one at `at`, which begins the last atom: nothing links across it from the left yet.
    void insert(unsigned opcode, unsigned at) {
        const unsigned end = m_size;
        node(opcode);
        if (!m_program) return;
        std::memmove(m_program + at + node_bytes, m_program + at, end - at);
        m_program[at] = static_cast<char>(opcode);
        set_link(at, 0);
    }

    void link(unsigned from, unsigned to) {
        if (!m_program) return;
        const unsigned distance = m_program[from] == REOP_BACK ? from - to : to - from;
        if (distance > longest_link) throw failure{stRegExpTooBig};
        set_link(from, distance);
    }

    // Adds a node to a list of nodes that are to be linked to the same one, and gives the list.
    unsigned defer(unsigned list, unsigned at) {
        if (m_program) set_link(at, list ? at - list : 0);
        return at;
    }
    void link_all(unsigned list, unsigned to) {
        if (!m_program) return;
        for (unsigned at = list; at;) {
            const unsigned distance = link_bytes(m_program + at);
            link(at, to);
            at = distance ? at - distance : 0;
        }
    }

private:
    // The passes agree unless another thread changes the locale or the pattern meanwhile.
    void require(std::size_t count) const {
        if (count > m_room - m_size) throw failure{stOther};
    }
    void set_link(unsigned at, unsigned distance) {
        m_program[at + 1] = static_cast<char>(distance / 256);
        m_program[at + 2] = static_cast<char>(distance % 256);
    }

    char *m_program = nullptr;  // null: only counts
    unsigned m_room = 0;
    unsigned m_size = 0;
};

class parser {
public:
    explicit parser(const char *pattern) : m_begin(pattern), m_end(pattern + std::strlen(pattern)) {}

    // The bytes that the program will take.
    unsigned measure() {
        run(nullptr, 0);
        if (m_out.full()) throw failure{stRegExpTooBig, m_overflow};
        return m_out.size();
    }
    // The flags of the whole expression.
    unsigned write(char *program, unsigned room) {
        const unsigned flags = run(program, room);
        if (m_out.size() != room) throw failure{stOther};
        return flags;
    }

    const char *position() const { return m_at; }

private:
    unsigned run(char *program, unsigned room) {
        m_at = m_begin;
        m_groups = 0;
        m_out.begin(program, room);
        m_out.put(static_cast<char>(regexpMagic));
        return expression(0, m_begin).flags;
    }

    // The byte at hand; the terminator at the end of the pattern.
    char peek() const { return *m_at; }
    bool at_end() const { return m_at == m_end; }
    bool take(char wanted) {
        if (peek() != wanted) return false;
        ++m_at;
        return true;
    }
    character decoded(const char *at) const {
        const character result = decode(at, m_end);
        if (result.bytes == 0) throw failure{stOther, at};
        return result;
    }

    // The whole pattern for group 0, otherwise what follows the parenthesis at `opened`.
    chain expression(unsigned group, const char *opened) {
        const unsigned open = group ? m_out.node(REOP_OPEN + group) : 0;
        chain whole{open, 0, has_width};
        unsigned before = open;
        unsigned ends = 0;
        do {
            const chain alternative = branch();
            if (before)
                m_out.link(before, alternative.first);
            else
                whole.first = alternative.first;
            before = alternative.first;
            ends = m_out.defer(ends, alternative.last);
            if (!(alternative.flags & has_width)) whole.flags &= ~has_width;
            whole.flags |= alternative.flags & repeat_start;
        } while (take('|'));
        whole.last = m_out.node(group ? REOP_CLOSE + group : unsigned{REOP_END});
        m_out.link(before, whole.last);
        m_out.link_all(ends, whole.last);
        finish(group, opened);
        return whole;
    }

    void finish(unsigned group, const char *opened) {
        if (group && !take(')')) throw failure{stUnterminatedBrackets, opened};
        if (!group && !at_end()) throw failure{peek() == ')' ? stUnmatchedBrackets : stJunkOnEnd};
    }

    // `last` is the end of the operand.
    chain branch() {
        chain whole{m_out.node(REOP_BRANCH), 0, 0};
        while (!at_end() && peek() != '|' && peek() != ')') {
            const chain next = piece();
            whole.flags |= next.flags & has_width;
            if (whole.last)
                m_out.link(whole.last, next.first);
            else
                whole.flags |= next.flags & repeat_start;
            whole.last = next.last;
            if (m_out.full() && !m_overflow) m_overflow = m_at;
        }
        if (!whole.last) whole.last = m_out.node(REOP_NOTHING);
        return whole;
    }

    chain piece() {
        const chain repeated = atom();
        const char multiplier = peek();
        if (!is_multiplier(multiplier)) return repeated;
        if (multiplier != '?' && !(repeated.flags & has_width)) throw failure{stOperEmpty};
        ++m_at;
        const chain result = multiplier == '*'   ? any_times(repeated)
                             : multiplier == '+' ? at_least_once(repeated)
                                                 : at_most_once(repeated);
        if (is_multiplier(peek())) throw failure{stNested};
        return result;
    }

    chain any_times(chain repeated) {
        if (repeated.flags & simple) {
            m_out.insert(REOP_STAR, repeated.first);
            return {repeated.first, repeated.first, repeat_start};
        }
        const unsigned loop = repeated.first;
        m_out.insert(REOP_BRANCH, loop);
        const unsigned back = m_out.node(REOP_BACK);
        m_out.link(repeated.last + node_bytes, back);
        m_out.link(back, loop);
        return {loop, or_nothing(loop), repeat_start};
    }

    chain at_least_once(chain repeated) {
        if (repeated.flags & simple) {
            m_out.insert(REOP_PLUS, repeated.first);
            return {repeated.first, repeated.first, has_width | repeat_start};
        }
        const unsigned loop = m_out.node(REOP_BRANCH);
        m_out.link(repeated.last, loop);
        m_out.link(m_out.node(REOP_BACK), repeated.first);
        return {repeated.first, or_nothing(loop), has_width | repeat_start};
    }

    chain at_most_once(chain repeated) {
        m_out.insert(REOP_BRANCH, repeated.first);
        const unsigned nothing = or_nothing(repeated.first);
        m_out.link(repeated.last + node_bytes, nothing);
        return {repeated.first, nothing, 0};
    }

    // The alternative of a branch that takes nothing and leads on.
    unsigned or_nothing(unsigned branch) {
        const unsigned other = m_out.node(REOP_BRANCH);
        m_out.link(branch, other);
        const unsigned nothing = m_out.node(REOP_NOTHING);
        m_out.link(other, nothing);
        return nothing;
    }

    chain atom() {
        switch (peek()) {
            case '^':
                return one_node(REOP_BOL, 0);
            case '$':
                return one_node(REOP_EOL, 0);
            case '.':
                return one_node(REOP_ANY, has_width | simple);
            case '[':
                return set();
            case '(':
                return group();
            case '\\':
                return escaped();
            case '*':
            case '+':
            case '?':
                throw failure{stFollowsNothing};
            case '\0':
            case '|':
            case ')':
                throw failure{stUnexpectedSymbol};
            default:
                return literal();
        }
    }

    chain one_node(unsigned opcode, unsigned flags) {
        ++m_at;
        const unsigned at = m_out.node(opcode);
        return {at, at, flags};
    }

    chain exactly(const char *text, std::size_t bytes, unsigned flags) {
        const unsigned at = m_out.node(REOP_EXACTLY);
        m_out.put(text, bytes);
        m_out.put('\0');
        return {at, at, flags};
    }

    chain group() {
        if (m_groups == most_groups) throw failure{stTooManyBrackets};
        const char *opened = m_at++;
        return expression(++m_groups, opened);
    }

    chain escaped() {
        const char *backslash = m_at++;
        if (at_end()) throw failure{stTrailingSymbol, backslash};
        const char *at = m_at;
        m_at += decoded(at).bytes;
        return exactly(at, static_cast<std::size_t>(m_at - at), has_width | simple);
    }

    // A run of ordinary characters; a multiplier behind it takes only the last one.
    chain literal() {
        const char *begin = m_at;
        const char *last = m_at;
        while (!at_end() && metacharacters.find(peek()) == std::string_view::npos) {
            last = m_at;
            m_at += decoded(m_at).bytes;
        }
        if (m_at == begin) throw failure{stStringZeroLen};
        if (last != begin && is_multiplier(peek())) {
            m_at = last;
            const auto before_last = static_cast<std::size_t>(last - begin);
            return exactly(begin, before_last, has_width);
        }
        return exactly(begin, static_cast<std::size_t>(m_at - begin),
                       last == begin ? has_width | simple : has_width);
    }

    chain set() {
        const char *opened = m_at++;
        const unsigned at = m_out.node(take('^') ? REOP_ANYBUT : REOP_ANYOF);
        const char *before = m_at;  // the character that a range behind it begins with
        if (!at_end() && (peek() == ']' || peek() == '-')) copy_character();
        while (!at_end() && peek() != ']') {
            const char *here = m_at;
            if (take('-')) {
                if (at_end() || peek() == ']') {
                    m_out.put('-');
                    continue;
                }
                here = m_at;
                range(before);
            } else {
                copy_character();
            }
            before = here;
        }
        if (!take(']')) throw failure{stUnmatchedSqBrackets, opened};
        m_out.put('\0');
        return {at, at, has_width | simple};
    }

    void copy_character() {
        const unsigned bytes = decoded(m_at).bytes;
        m_out.put(m_at, bytes);
        m_at += bytes;
    }

    // From the character at `from`, which is in the set, to the one at hand. A program that is too big
    // already takes no more characters: only errors are looked for from there on.
    void range(const char *from) {
        const std::uint32_t first = decoded(from).value;
        const character last = decoded(m_at);
        if (first > last.value) throw failure{stInvalidRange, from};
        m_at += last.bytes;
        for (std::uint32_t value = first + 1; !m_out.full(); value++) {
            value = m_characters.next(value, last.value);
            if (value > last.value) return;
            char bytes[MB_LEN_MAX] = {static_cast<char>(value)};
            m_out.put(bytes, value < 0x80 ? 1 : encode(value, bytes));
        }
    }

    const char *m_begin;
    const char *m_end;
    const char *m_at = nullptr;
    const char *m_overflow = nullptr;  // where the program became too big
    unsigned m_groups = 0;
    program_writer m_out;
    known_characters m_characters;
};

// What a search may rely on, read off the finished program.
void find_shortcuts(regexp &program, unsigned flags) {
    const char *branch = program.program + 1;
    const char *first = branch + node_bytes;
    if (branch[link_bytes(branch)] != REOP_END) return;
    if (*first == REOP_EXACTLY) {
        const char *text = first + node_bytes;
        std::memcpy(program.firstChar, text, decode(text, text + std::strlen(text)).bytes);
    }
    program.anchored = *first == REOP_BOL;
    if (!(flags & repeat_start)) return;
    for (const char *node = first; *node != REOP_END; node += link_bytes(node)) {
        if (*node != REOP_EXACTLY) continue;
        const char *text = node + node_bytes;
        const int length = static_cast<int>(std::strlen(text));
        if (length < program.mustLength) continue;
        program.mustText = text;
        program.mustLength = length;
    }
}

kel::owned_regexp make_program(parser &source) {
    const unsigned bytes = source.measure();
    const std::size_t block = std::max(sizeof(regexp), offsetof(regexp, program) + bytes);
    kel::owned_regexp program(static_cast<regexp *>(std::malloc(block)));
    if (!program) throw failure{stOutofSpace};
    *program = regexp{};
    program->programSize = bytes;
    const unsigned flags = source.write(program->program, bytes);
    find_shortcuts(*program, flags);
    return program;
}

struct outcome {
    kel::owned_regexp program;
    stErrorCode code = stSuccess;
    const char *at = nullptr;  // of the error
};

outcome compile(const char *pattern) {
    if (!kel::is_text(pattern)) return {nullptr, stNullArgRegExp};
    parser source(pattern);
    try {
        return {make_program(source)};
    } catch (const failure &error) {
        return {nullptr, error.code, error.at ? error.at : source.position()};
    } catch (const std::bad_alloc &) {
        return {nullptr, stOutofSpace, source.position()};
    }
}

}  // namespace

regexp *regcomp(const char *pattern) {
    outcome result = compile(pattern);
    if (result.code != stSuccess) stHandleKnownError(result.code, "regcomp");
    return result.program.release();
}

kel::pattern_error kel::check_pattern(const char *pattern) {
    const outcome result = compile(pattern);
    int position = 0;
    for (const char *at = pattern; result.at && at < result.at; position++)
        at += std::max(decode(at, result.at).bytes, 1u);
    return {result.code, position, error_message(result.code)};
}
