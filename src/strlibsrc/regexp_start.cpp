// In UTF-8 and where bytes are characters, a byte that begins a character is never inside another one, so a
// search for first bytes meets the beginnings of characters only. Other encodings are not searched this way.
#include "strlibsrc/regexp_start.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "strlibsrc/find_bytes.h"

namespace kel::detail {

regexp_start::regexp_start(const regexp_program &program) {
    if (program.alphabet().form() == encoding::other) return;
    find_text_of(program);
    find_bytes_of(program);
    find_ranges();
}

void regexp_start::find_text_of(const regexp_program &program) {
    const regexp_alphabet &alphabet = program.alphabet();
    std::vector<std::uint32_t> keys(alphabet.size());
    for (std::size_t i = 0; i < alphabet.named(); ++i)
        keys[alphabet.of_named(i)] = alphabet.key(i);
    std::uint32_t number = regexp_program::start;
    // A damaged program may go around in characters for ever.
    for (std::size_t steps = 0; steps < program.code().size(); ++steps) {
        const instruction &each = program.code()[number];
        if (each.what == instruction::character) {
            const std::uint32_t key = keys[each.value];
            for (int shift = 24; shift >= 0; shift -= 8)
                if (key >> shift != 0) m_text += static_cast<char>(key >> shift & 0xFF);
        } else if (each.what == instruction::success) {
            m_is_text = !m_text.empty() && !program.has_groups();
            return;
        } else if (each.what != instruction::jump && each.what != instruction::save) {
            return;
        }
        number = each.next;
    }
}

void regexp_start::find_bytes_of(const regexp_program &program) {
    const regexp_alphabet &alphabet = program.alphabet();
    std::vector<char> symbols(alphabet.size()), met(program.code().size());
    std::vector<std::uint32_t> open{regexp_program::start};
    while (!open.empty()) {
        const std::uint32_t number = open.back();
        open.pop_back();
        if (met[number]) continue;
        met[number] = 1;
        const instruction &each = program.code()[number];
        if (each.what == instruction::success) return;
        if (each.takes_character()) {
            for (std::size_t i = 0; i < alphabet.size(); ++i)
                if (program.takes(number, static_cast<symbol>(i))) symbols[i] = true;
        } else if (each.what > instruction::line_end) {
            open.push_back(each.next);
            if (each.what == instruction::split) open.push_back(each.value);
        }
    }
    for (unsigned byte = 0; byte < 256; ++byte) {
        const symbol direct = alphabet.of_byte(static_cast<char>(byte));
        m_first[byte] = symbols[direct == regexp_alphabet::indirect ? regexp_alphabet::other : direct] != 0;
    }
    for (std::size_t i = 0; i < alphabet.named(); ++i) {
        std::uint32_t first = alphabet.key(i);
        while (first > 0xFF)
            first >>= 8;
        if (symbols[alphabet.of_named(i)]) m_first[first] = true;
    }
    int bytes = 0;
    for (unsigned byte = 0; byte < 256; ++byte)
        if (m_first[byte]) {
            ++bytes;
            m_byte = static_cast<char>(byte);
        }
    m_one_byte = bytes == 1;
    m_useful = bytes < 256;
}

void regexp_start::find_ranges() {
    std::size_t count = 0;
    for (unsigned byte = 0; byte < 256; ++byte) {
        if (!m_first[byte]) continue;
        const auto own = static_cast<std::uint8_t>(byte);
        if (byte > 0 && m_first[byte - 1])
            ++m_ranges[count - 1].width;
        else if (count < most_ranges)
            m_ranges[count++] = {own, 0};
        else
            return;
    }
    m_few_ranges = count > 0;
    std::fill(m_ranges.begin() + static_cast<std::ptrdiff_t>(count), m_ranges.end(), m_ranges[0]);
}

// As far as whole blocks hold none of the bytes. A compiler makes instructions for 16 bytes of the inner
// loop.
const char *regexp_start::pass_blocks(const char *at, const char *end) const noexcept {
    constexpr std::ptrdiff_t in_block = 64;
    const std::array<byte_range, most_ranges> ranges = m_ranges;
    for (; end - at >= in_block; at += in_block) {
        std::uint8_t met = 0;
        for (std::ptrdiff_t i = 0; i < in_block; ++i) {
            auto in = [byte = static_cast<std::uint8_t>(at[i])](byte_range range) {
                return static_cast<std::uint8_t>(static_cast<std::uint8_t>(byte - range.first) <=
                                                 range.width);
            };
            met |= static_cast<std::uint8_t>(in(ranges[0]) | in(ranges[1]) | in(ranges[2]));
        }
        if (met) break;
    }
    return at;
}

const char *regexp_start::look(const char *at, const char *end) const noexcept {
    if (at == end) return end;
    if (m_text.size() > 1) {
        const char *found = find_bytes(at, end, m_text);
        return found ? found : end;
    }
    if (m_one_byte) {
        const void *found = std::memchr(at, m_byte, static_cast<std::size_t>(end - at));
        return found ? static_cast<const char *>(found) : end;
    }
    auto look_until = [&](const char *stop) {
        while (at != stop && !m_first[static_cast<unsigned char>(*at)])
            ++at;
        return at != stop;
    };
    constexpr std::ptrdiff_t near = 128;
    if (m_few_ranges && end - at > near) {
        if (look_until(at + near)) return at;
        at = pass_blocks(at, end);
    }
    look_until(end);
    return at;
}

}  // namespace kel::detail
