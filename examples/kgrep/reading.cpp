#include "reading.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include <kelstdmt/kelstdmt.h>

Input::Input(const std::string &path) : m_path(path) {
    if (path == "-") return;
    m_file.reset(std::fopen(path.c_str(), "rb"));
    if (!m_file) throw Unreadable{std::strerror(errno)};
    std::setvbuf(m_file.get(), nullptr, _IONBF, 0);
}

std::size_t Input::Read(char *to, std::size_t room) {
    if (m_ended) return 0;
    if (m_file) {
        errno = 0;
        std::size_t count = std::fread(to, 1, room, m_file.get());
        if (count < room && std::ferror(m_file.get())) throw Unreadable{std::strerror(errno)};
        m_ended = count < room;
        return count;
    }
    // The first byte is waited for; then what lies there already is taken too.
    ioStream &input = *ioStream::getStdin();
    try {
        unsigned count = input.ReadBytes(to, 1);
        unsigned more = std::min(input.PeekNBytes(), static_cast<unsigned>(room) - 1);
        return count + input.ReadBytes(to + 1, more);
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        m_ended = true;
        if (!input.getIsEof()) throw Unreadable{"cannot be read"};
        return 0;
    }
}

void Blocks::Begin(Input &input, const char *folding) {
    constexpr std::size_t usual = std::size_t{1} << 17;
    m_input = &input;
    m_folding = folding;
    if (m_bytes.size() != usual) m_bytes = std::vector<char>(usual);
    if (m_folded.size() > usual) m_folded = std::vector<char>();
    m_end = m_filled = 0;
    m_binary = false;
}

// Behind what is there already. False at the end of the file.
bool Blocks::ReadMore() {
    if (m_filled + 1 == m_bytes.size()) {
        if (m_filled > longest_line) throw Unreadable{"a line is longer than 1 GiB"};
        m_bytes.resize(m_bytes.size() * 2);
    }
    std::size_t count = m_input->Read(m_bytes.data() + m_filled, m_bytes.size() - m_filled - 1);
    char *from = m_bytes.data() + m_filled;
    m_filled += count;
    m_binary = m_binary || std::memchr(from, 0, count);
    if (m_binary) std::replace(from, from + count, '\0', '\n');
    return count > 0;
}

bool Blocks::Next() {
    m_bytes[m_end] = m_kept;
    std::memmove(m_bytes.data(), m_bytes.data() + m_end, m_filled - m_end);
    m_filled -= m_end;
    m_end = 0;
    while (m_end == 0) {
        std::size_t seen = m_filled;
        if (!ReadMore()) {
            m_end = m_filled;
            break;
        }
        std::size_t last = std::string_view(m_bytes.data() + seen, m_filled - seen).rfind('\n');
        if (last != std::string_view::npos) m_end = seen + last + 1;
    }
    m_kept = std::exchange(m_bytes[m_end], '\0');
    Fold();
    return m_end > 0;
}

void Blocks::Fold() {
    if (!m_folding) return;
    if (m_folded.size() <= m_end) m_folded.resize(m_bytes.size());
    std::transform(m_bytes.data(), m_bytes.data() + m_end, m_folded.data(),
                   [this](char byte) { return m_folding[static_cast<unsigned char>(byte)]; });
    m_folded[m_end] = 0;
}
