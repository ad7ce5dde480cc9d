// Raw bytes in blocks, split here: the text encoding's own ReadString skips leading white space, and with it
// the empty lines that must be counted.
#include "lines.h"

#include <array>
#include <string>

Lines::Lines(const char *path) : m_stream(ioFileStream::Open(path, ioReadOnly)), m_path(path) {
    if (!m_stream) XFile::Throw(path, Error_GetText(Error_GetLast()));
}

bool Lines::Next(std::string_view &line) {
    std::size_t looked = m_begin, end;
    while ((end = m_buffer.find('\n', looked)) == std::string::npos) {
        looked = m_buffer.size();
        if (looked - m_begin > LongestLine) {
            m_cut = "line " + std::to_string(m_number + 1) + " is longer than " +
                    std::to_string(LongestLine) + " bytes; the rest of the file was not read";
            return false;
        }
        std::size_t taken = m_begin;
        if (!Fill()) {
            if (m_begin == m_buffer.size() || !m_cut.empty()) return false;
            end = m_buffer.size();
            break;
        }
        looked -= taken;  // what was handed out is gone from the buffer
    }
    line = std::string_view(m_buffer).substr(m_begin, end - m_begin);
    if (line.ends_with('\r')) line.remove_suffix(1);
    m_begin = std::min(end + 1, m_buffer.size());
    ++m_number;
    return true;
}

// False at the end of the file.
bool Lines::Fill() {
    if (m_ended) return false;
    if (m_total >= LargestFile) {
        m_cut = "the file is larger than " + std::to_string(LargestFile) + " bytes; the rest was not read";
        m_ended = true;
        return false;
    }
    std::array<char, 65536> block;
    unsigned count = 0;
    Error_SetLast(0);
    try {
        count = m_stream->ReadBytes(block.data(), static_cast<unsigned>(block.size()));
    } catch (xthrowable *thrown) {
        // The stream ends here. Only the last error tells why, where it is not the end of the file.
        kel::caught error(thrown);
        if (int reason = Error_GetLast()) XFile::Throw(m_path, Error_GetText(reason));
        m_ended = true;
        return false;
    }
    m_total += count;
    m_buffer.erase(0, m_begin);
    m_begin = 0;
    m_buffer.append(block.data(), count);
    return true;
}
