// Characters of UTF-8 by our own code, those of other encodings by the C library.
//
// Long texts go by words of 8 bytes. A comparison with a constant happens in all 8 bytes at once: the low
// seven bits of each byte plus (0x80 - k) reach the top bit exactly when they are k or more. That tells which
// bytes begin a character and which continue one, and a word is valid when the bytes that continue are
// exactly those that the bytes before them ask for; so a word costs the same whatever it holds. What is not
// valid is taken character by character. Long runs that are not ASCII go by blocks, in a loop over single
// bytes that a compiler turns into instructions for 16 of them: each byte is judged by the three ahead of it.
#include "runtime/characters.h"

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <limits>

#include "runtime/system.h"
#include "runtime/words.h"

namespace kel::detail {

namespace {

constexpr word high_bits = ones << 7;

// Of the valid character at `at`; 0 for none. As the C library has it, characters end at F7 BF BF BF.
std::size_t utf8_bytes(const char *at, std::size_t left) noexcept {
    const auto lead = static_cast<unsigned char>(at[0]);
    if (lead < 0xC2 || lead > 0xF7 || left < 2 || !continues(at[1])) return 0;
    if (lead < 0xE0) return 2;
    const auto second = static_cast<unsigned char>(at[1]);
    if (left < 3 || !continues(at[2])) return 0;
    if (lead < 0xF0) return (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ? 0 : 3;
    return left < 4 || !continues(at[3]) || (lead == 0xF0 && second < 0x90) ? 0 : 4;
}

std::size_t marked(word high) noexcept {
    return static_cast<std::size_t>((high >> 7) * ones >> 56);
}

// Marks, in the top bit of each byte, of one word and of what it asks of the next.
class utf8_words {
public:
    bool pending() const noexcept { return m_second | m_third | m_fourth; }

    // Whether the next word is valid, its last character maybe unfinished; tells how many characters begin.
    bool take(word bytes, std::size_t &begun) noexcept {
        const word low = bytes & ~high_bits;
        const word high = bytes & high_bits;
        auto from = [low, high](unsigned byte) { return (low + ones * (0x100U - byte)) & high; };
        const word lead = from(0xC0), three = from(0xE0), four = from(0xF0);
        const word continuation = high & ~lead;
        const word second = lead << 8 | m_second;
        const word third = three << 16 | m_third;
        const word fourth = four << 24 | m_fourth;
        word bad = (continuation ^ (second | third | fourth)) | (lead & ~from(0xC2)) | from(0xF8);
        if (three | m_third) {
            const word e0 = three & ~from(0xE1), ed = from(0xED) & ~from(0xEE), f0 = four & ~from(0xF1);
            bad |= (e0 << 8 | m_e0) & ~from(0xA0);
            bad |= (ed << 8 | m_ed) & from(0xA0);
            bad |= (f0 << 8 | m_f0) & ~from(0x90);
            m_e0 = e0 >> 56, m_ed = ed >> 56, m_f0 = f0 >> 56;
        } else {
            m_e0 = m_ed = m_f0 = 0;
        }
        m_second = lead >> 56, m_third = three >> 48, m_fourth = four >> 40;
        begun = in_word - marked(continuation);
        return bad == 0;
    }

private:
    word m_second = 0, m_third = 0, m_fourth = 0;  // bytes of the next word that must continue
    word m_e0 = 0, m_ed = 0, m_f0 = 0;             // a second byte that is restricted
};

bool are_ascii(const char *at) noexcept {
    return !((load_word(at) | load_word(at + in_word) | load_word(at + 2 * in_word) |
              load_word(at + 3 * in_word)) &
             high_bits);
}

constexpr std::size_t in_block = 64;

// Whether the block is valid, its last character maybe unfinished, behind three bytes that are; tells how
// many of its bytes continue a character.
bool take_block(const char *at, std::size_t &continuing) noexcept {
    using byte = std::uint8_t;
    const byte *bytes = reinterpret_cast<const byte *>(at);
    byte bad[in_block], continued[in_block];
    for (std::size_t i = 0; i < in_block; ++i) {
        const byte own = bytes[i], before = (bytes - 1)[i], second = (bytes - 2)[i], third = (bytes - 3)[i];
        auto all_bits = [](bool holds) { return static_cast<byte>(holds ? 0xFF : 0); };
        const byte continuation = all_bits((own & 0xC0) == 0x80);
        const byte asked = all_bits(before >= 0xC0) | all_bits(second >= 0xE0) | all_bits(third >= 0xF0);
        const byte lead = all_bits((own & 0xFE) == 0xC0) | all_bits(own >= 0xF8);
        const byte overlong = all_bits(before == 0xE0) & all_bits(own < 0xA0);
        const byte surrogate = all_bits(before == 0xED) & all_bits(own >= 0xA0);
        const byte longest = all_bits(before == 0xF0) & all_bits(own < 0x90);
        bad[i] = (continuation ^ asked) | lead | overlong | surrogate | longest;
        continued[i] = continuation & 1;
    }
    byte any = 0, sum = 0;
    for (std::size_t i = 0; i < in_block; ++i) {
        any |= bad[i];
        sum = static_cast<byte>(sum + continued[i]);
    }
    continuing = sum;
    return any == 0;
}

struct place {
    const char *at;
    std::size_t characters;  // before it
};

// Back from behind a character that is not finished to its beginning.
place step_back(place from) noexcept {
    do
        --from.at;
    while (continues(*from.at));
    return {from.at, from.characters - 1};
}

bool is_unfinished(const char *end) noexcept {
    auto from = [end](std::ptrdiff_t back, unsigned lead) {
        return static_cast<unsigned char>(end[-back]) >= lead;
    };
    return from(1, 0xC0) || from(2, 0xE0) || from(3, 0xF0);
}

// As far as whole blocks are valid, hold no more than `limit` characters, and are not all ASCII; from and to
// a beginning of one, with three bytes of valid ones ahead of it.
place pass_blocks(place from, const char *end, std::size_t limit) noexcept {
    place now = from;
    std::size_t continuing = 1;
    while (continuing != 0 && static_cast<std::size_t>(end - now.at) >= in_block &&
           limit - now.characters >= in_block && take_block(now.at, continuing)) {
        now.at += in_block;
        now.characters += in_block - continuing;
    }
    return now.at != from.at && is_unfinished(now.at) ? step_back(now) : now;
}

// As far as whole words are valid and hold no more than `limit` characters; from and to a beginning of one.
place pass_words(place from, const char *end, std::size_t limit) noexcept {
    constexpr std::size_t stride = 4 * in_word;
    const char *at = from.at;
    std::size_t count = from.characters;
    auto room = [&](std::size_t bytes) {
        return static_cast<std::size_t>(end - at) >= bytes && limit - count >= bytes;
    };
    utf8_words words;
    bool pending = false, blocks = true;
    while (room(in_word)) {
        const word bytes = load_word(at);
        if (!pending && !(bytes & high_bits)) {
            at += in_word, count += in_word;
            for (; room(stride) && are_ascii(at); at += stride)
                count += stride;
            continue;
        }
        if (blocks && !pending && at - from.at >= 3) {
            const place passed = pass_blocks({at, count}, end, limit);
            blocks = passed.at != at;
            at = passed.at, count = passed.characters;
            if (blocks) continue;
        }
        std::size_t begun = 0;
        if (!words.take(bytes, begun)) break;
        pending = words.pending();
        at += in_word, count += begun;
    }
    return pending ? step_back({at, count}) : place{at, count};
}

place walk_utf8(const char *begin, const char *end, std::size_t limit) noexcept {
    place now{begin, 0};
    while (now.at < end && now.characters < limit) {
        now = pass_words(now, end, limit);
        const char *stop = now.at + std::min(static_cast<std::size_t>(end - now.at), in_word);
        for (; now.at < stop && now.characters < limit; ++now.characters)
            now.at += character_bytes(encoding::utf8, now.at, end);
    }
    return now;
}

place walk(encoding form, const char *begin, const char *end, std::size_t limit) noexcept {
    if (begin >= end) return {begin, 0};
    if (form == encoding::utf8) return walk_utf8(begin, end, limit);
    if (form == encoding::single) {
        const std::size_t count = std::min(static_cast<std::size_t>(end - begin), limit);
        return {begin + count, count};
    }
    place now{begin, 0};
    for (; now.at < end && now.characters < limit; ++now.characters)
        now.at += character_bytes(form, now.at, end);
    return now;
}

}  // namespace

encoding locale_encoding() noexcept {
    if (system::locale_is_utf8()) return encoding::utf8;
    return MB_CUR_MAX == 1 ? encoding::single : encoding::other;
}

byte_case byte_case::upper() noexcept {
    return byte_case(system::upper_case());
}
byte_case byte_case::lower() noexcept {
    return byte_case(system::lower_case());
}

std::size_t multibyte_bytes(encoding form, const char *at, const char *end, bool *valid) noexcept {
    const std::size_t left = std::min(static_cast<std::size_t>(end - at), longest_character);
    std::size_t used = 0;
    if (form == encoding::utf8) {
        used = utf8_bytes(at, left);
    } else {
        std::mbstate_t state{};
        used = std::mbrlen(at, left, &state);
    }
    const bool good = used > 0 && used <= left;
    if (valid) *valid = good;
    return good ? used : 1;
}

std::size_t count_characters(encoding form, const char *begin, const char *end) noexcept {
    return walk(form, begin, end, std::numeric_limits<std::size_t>::max()).characters;
}

const char *skip_characters(encoding form, const char *begin, const char *end, std::size_t n) noexcept {
    return walk(form, begin, end, n).at;
}

}  // namespace kel::detail
