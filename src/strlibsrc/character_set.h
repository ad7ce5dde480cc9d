// Sets of characters, to be found in texts.
//
// Where a byte of the set cannot lie inside a longer character (in a locale of single bytes, and in UTF-8
// when the set is ASCII) characters do not matter: 64 bytes become 64 bits, one for each member, and what is
// sought are bits. Otherwise the walk goes from character to character.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <string_view>
#include <vector>

#include "runtime/characters.h"
#include "runtime/words.h"

namespace kel::detail {

class byte_set {
public:
    static constexpr std::size_t block = 64;

    void add(char value) noexcept {
        if (holds(value)) return;
        m_member[index(value) / 64] |= std::uint64_t{1} << index(value) % 64;
        if (m_count < m_few.size()) m_few[m_count] = repeated(value);
        ++m_count;
    }
    bool holds(char value) const noexcept { return bit(value) != 0; }

    // Bit i tells of byte i; at most a block.
    std::uint64_t members(const char *bytes, std::size_t count) const noexcept {
        if (m_count == 1) return few_members<1>(bytes, count);
        if (m_count == 2) return few_members<2>(bytes, count);
        return m_count <= m_few.size() ? few_members<4>(bytes, count) : members_from(0, bytes, count);
    }
    std::uint64_t members(const char *bytes) const noexcept { return members(bytes, block); }

private:
    static std::size_t index(char value) noexcept { return static_cast<unsigned char>(value); }
    std::uint64_t bit(char value) const noexcept {
        return m_member[index(value) / 64] >> index(value) % 64 & 1;
    }

    std::uint64_t members_from(std::size_t at, const char *bytes, std::size_t count) const noexcept {
        std::uint64_t result = 0;
        for (; at < count; ++at)
            result |= bit(bytes[at]) << at;
        return result;
    }

    // Eight bytes together. Places in m_few that are not taken ask for NUL, which no text has.
    template <std::size_t Count>
    std::uint64_t few_members(const char *bytes, std::size_t count) const noexcept {
        constexpr word low = 0x7F * ones;
        std::uint64_t result = 0;
        std::size_t at = 0;
        for (; at + in_word <= count; at += in_word) {
            const word own = load_word(bytes + at);
            word other = ~word{0};
            for (std::size_t i = 0; i < Count; ++i) {
                const word different = own ^ m_few[i];
                other &=
                    ((different & low) + low) | different;  // keeps the top bit where the byte is another
            }
            // Top bits to the lowest places, and gathered by a multiplication in the highest byte.
            result |= (((~other & ~low) >> 7) * 0x0102040810204080 >> 56) << at;
        }
        return result | members_from(at, bytes, count);
    }

    std::array<std::uint64_t, 4> m_member{};  // a bit for each byte
    std::array<word, 4> m_few{};              // each of the first members, eight times
    std::size_t m_count = 0;
};

class character_set {
public:
    enum class rule {
        whole,     // a member is a character of the set
        occurring  // a member is a character whose bytes occur in the set
    };

    character_set(std::string_view characters, rule members);

    // Whether members are found without regard to where characters begin.
    bool by_bytes() const noexcept { return m_by_bytes; }
    bool holds(const char *at, std::size_t bytes) const noexcept {
        if (bytes == 1) return m_single.holds(*at);
        if (!m_within.empty()) return m_within.find(std::string_view(at, bytes)) != m_within.npos;
        return std::binary_search(m_long.begin(), m_long.end(), std::string_view(at, bytes));
    }

    // The first member in [at, end), `end` without one; the first character that is none; the last member,
    // null without one.
    const char *find(const char *at, const char *end) const noexcept;
    const char *pass(const char *at, const char *end) const noexcept;
    const char *find_last(const char *begin, const char *end) const noexcept;

    // Hands each piece between runs of members to `visit`, until that answers false. There is one piece more
    // than runs; a run at an end of the text has an empty one beside it.
    template <class Visit>
    void split(const char *begin, const char *end, Visit visit) const {
        if (by_bytes()) return split_bytes(begin, end, visit);
        while (true) {
            const char *stop = find(begin, end);
            if (!visit(begin, stop) || stop == end) return;
            begin = pass(stop, end);
        }
    }
    // How many pieces those are; where a walk is needed, at least so many.
    std::size_t count_pieces(const char *begin, const char *end) const noexcept;

private:
    // Blocks with a bit for each byte that is a member, and whether the byte before the block was one, until
    // `visit` answers false.
    template <class Visit>
    void blocks(const char *begin, const char *end, Visit visit) const {
        std::uint64_t before = 0;
        for (; static_cast<std::size_t>(end - begin) >= byte_set::block; begin += byte_set::block) {
            const std::uint64_t members = m_single.members(begin);
            if (!visit(begin, members, before)) return;
            before = members >> (byte_set::block - 1);
        }
        if (begin == end) return;
        visit(begin, m_single.members(begin, static_cast<std::size_t>(end - begin)), before);
    }

    template <class Visit>
    void split_bytes(const char *begin, const char *end, Visit visit) const {
        bool in_run = false, more = true;
        blocks(begin, end, [&](const char *at, std::uint64_t members, std::uint64_t before) {
            // A piece ends, or the next one begins, where a byte is not what the one before it is.
            for (std::uint64_t turns = members ^ (members << 1 | before); turns && more; turns &= turns - 1) {
                const char *turn = at + std::countr_zero(turns);
                if (turn == end) break;  // the bits behind a last block
                if (in_run)
                    begin = turn;
                else
                    more = visit(begin, turn);
                in_run = !in_run;
            }
            return more;
        });
        if (more) visit(in_run ? end : begin, end);
    }

    encoding m_form;
    bool m_by_bytes;
    byte_set m_single;
    std::vector<std::string_view> m_long;  // members of several bytes, sorted
    std::string_view m_within;             // where members of several bytes may occur anywhere; else empty
};

}  // namespace kel::detail
