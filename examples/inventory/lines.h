// The lines of a file, one after the other, each of bounded length.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "types.h"

// Throws XFile when the path cannot be opened or read. Neither an endless line nor an endless file is
// followed: at the limit the reading ends, and Cut tells why.
class Lines {
public:
    static constexpr std::size_t LongestLine = std::size_t{16} << 20;  // bytes
    static constexpr std::size_t LargestFile = std::size_t{64} << 20;

    explicit Lines(const char *path);

    // False at the end. The line is without its end (LF or CR LF) and valid until the next call.
    bool Next(std::string_view &line);
    int Number() const noexcept { return m_number; }           // of the line that Next gave last, from 1
    const std::string &Cut() const noexcept { return m_cut; }  // empty when all of the file was read

private:
    bool Fill();

    std::unique_ptr<ioFileStream> m_stream;
    const char *m_path;
    std::string m_buffer;
    std::size_t m_begin = 0;  // of the bytes in the buffer that were not handed out
    std::size_t m_total = 0;
    int m_number = 0;
    bool m_ended = false;
    std::string m_cut;
};
