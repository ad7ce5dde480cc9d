// One bit for each character of the piece says that the piece up to there ends at the present place of the
// text; the next character of the text moves all bits on by one and keeps those whose character it is. A
// character that is frequent in the piece has a mask of these bits ready, any other one the list of its
// places, which is shorter than a mask.
#include "strlibsrc/shell_bits.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>
#include <vector>

namespace kel::detail {

namespace {

using word = std::uint64_t;
using mask = std::vector<word>;

constexpr std::size_t in_word = 64;

bool test(const mask &bits, std::size_t at) noexcept {
    return bits[at / in_word] >> (at % in_word) & 1;
}
void set(mask &bits, std::size_t at) noexcept {
    bits[at / in_word] |= word{1} << (at % in_word);
}

struct letter {
    std::string_view bytes;
    std::vector<std::size_t> places;
    mask ready;  // empty: go by the places
};

class piece_bits {
public:
    piece_bits(encoding form, std::string_view piece);

    // Whether the piece ends behind this character, which follows those before.
    bool take(std::string_view character) noexcept;
    std::size_t size() const noexcept { return m_size; }

private:
    const letter *find(std::string_view character) const noexcept;

    std::size_t m_size = 0;
    mask m_any;                               // the places of ?
    std::vector<letter> m_letters;            // by their bytes
    std::array<std::size_t, 256> m_single{};  // of a letter of one byte: one more than its index
    mask m_now, m_before;
};

piece_bits::piece_bits(encoding form, std::string_view piece) {
    std::vector<std::pair<std::string_view, std::size_t>> all;
    const char *const end = piece.data() + piece.size();
    for (const char *at = piece.data(); at < end; ++m_size) {
        const std::size_t bytes = character_bytes(form, at, end);
        all.emplace_back(std::string_view(at, bytes), m_size);
        at += bytes;
    }
    const std::size_t words = m_size / in_word + 1;
    m_any.resize(words), m_now.resize(words), m_before.resize(words);
    std::sort(all.begin(), all.end());
    for (const auto &[bytes, place] : all) {
        if (bytes == "?") {
            set(m_any, place);
            continue;
        }
        if (m_letters.empty() || m_letters.back().bytes != bytes) m_letters.push_back({bytes, {}, {}});
        m_letters.back().places.push_back(place);
    }
    for (std::size_t i = 0; i < m_letters.size(); ++i) {
        letter &each = m_letters[i];
        if (each.bytes.size() == 1) m_single[static_cast<unsigned char>(each.bytes[0])] = i + 1;
        if (each.places.size() <= words) continue;
        each.ready = m_any;
        for (std::size_t place : each.places)
            set(each.ready, place);
    }
}

const letter *piece_bits::find(std::string_view character) const noexcept {
    if (character.size() == 1) {
        const std::size_t index = m_single[static_cast<unsigned char>(character[0])];
        return index ? &m_letters[index - 1] : nullptr;
    }
    const auto found =
        std::lower_bound(m_letters.begin(), m_letters.end(), character,
                         [](const letter &each, std::string_view key) { return each.bytes < key; });
    return found != m_letters.end() && found->bytes == character ? &*found : nullptr;
}

bool piece_bits::take(std::string_view character) noexcept {
    std::swap(m_now, m_before);
    const letter *which = find(character);
    const bool ready = which && !which->ready.empty();
    const mask &kept = ready ? which->ready : m_any;
    word carried = 1;  // a piece may begin anywhere
    for (std::size_t i = 0; i < m_now.size(); ++i) {
        m_now[i] = (m_before[i] << 1 | carried) & kept[i];
        carried = m_before[i] >> (in_word - 1);
    }
    if (which && !ready)
        for (std::size_t place : which->places)
            if (place == 0 || test(m_before, place - 1)) set(m_now, place);
    return test(m_now, m_size - 1);
}

}  // namespace

text_range find_by_bits(encoding form, std::string_view text, std::string_view piece) {
    if (piece.empty()) return {text.data(), text.data()};
    piece_bits bits(form, piece);
    const char *const end = text.data() + text.size();
    std::size_t count = 1;
    for (const char *at = text.data(); at < end; ++count) {
        const std::string_view character(at, character_bytes(form, at, end));
        at += character.size();
        if (bits.take(character)) return {skip_characters(form, text.data(), end, count - bits.size()), at};
    }
    return {};
}

}  // namespace kel::detail
