// fsiFile: a file of the host, each call one call there.
#include <cmath>

#include <kelstdmt/filelib_nodes.h>
#include <kelstdmt/vumrt_stream.h>

#include "filelibsrc/path_checks.h"
#include "filelibsrc/whole_bytes.h"
#include "runtime/nodes.h"

using kel::system::file_demand;
using kel::system::owned_descriptor;

namespace {

constexpr int wrong_handle = 6;

bool is_open(bool opened) noexcept {
    if (!opened) Error_SetLast(wrong_handle);
    return opened;
}

}  // namespace

fsiFile::~fsiFile() {
    const int before = Error_GetLast();
    Close();
    Error_SetLast(before);
}

bool fsiFile::Open(const char *path, fsFileMode mode) {
    if (m_opened) Close();
    std::string normalised;
    if (!kel::detail::normalise(path, normalised)) return false;
    const std::string host_path = btkHostPath(normalised.c_str());
    const bool writes = mode != fsForReading;
    kel::system::open_file opened = writes ? kel::system::open_to_write(host_path.c_str(), file_demand::any)
                                           : kel::system::open_to_read(host_path.c_str(), file_demand::any);
    if (!opened.file) return false;
    m_plain = opened.is_plain();
    if (m_plain && !kel::system::take_share(opened.file.get(), writes)) return false;
    m_handle = opened.file.release();
    return m_opened = true;
}

fsIOStatus fsiFile::Read(void *buffer, unsigned count, unsigned *got) {
    const long long bytes = is_open(m_opened) ? kel::system::read_bytes(m_handle, buffer, count) : -1;
    if (got) *got = bytes > 0 ? static_cast<unsigned>(bytes) : 0;
    return bytes < 0 ? fsIOFailed : bytes == 0 ? fsIOEnd : fsIODone;
}

fsIOStatus fsiFile::Write(const void *buffer, unsigned count, unsigned *done) {
    std::size_t bytes = 0;
    if (is_open(m_opened))
        bytes = m_plain ? kel::system::write_bytes(m_handle, buffer, count)
                        : kel::system::write_stream(m_handle, buffer, count);
    if (done) *done = static_cast<unsigned>(bytes);
    return m_opened && bytes == count ? fsIODone : fsIOFailed;
}

bool fsiFile::Truncate(double size) {
    long long bytes;
    return is_open(m_opened) && kel::detail::whole_bytes(size, bytes) &&
           kel::system::seek(m_handle, kel::system::seek_from::start, bytes) &&
           File_Truncate(m_handle, bytes);
}

bool fsiFile::Seek(fsFilePosition from, double offset) {
    using kel::system::seek_from;
    const seek_from origin = from == fsFromStart     ? seek_from::start
                             : from == fsFromCurrent ? seek_from::current
                                                     : seek_from::end;
    long long bytes;
    return is_open(m_opened) && kel::detail::whole_bytes(offset, bytes) &&
           kel::system::seek(m_handle, origin, bytes);
}

bool fsiFile::Close() {
    if (!is_open(m_opened)) return false;
    m_opened = false;
    owned_descriptor file(std::exchange(m_handle, -1));
    if (m_plain) kel::system::give_back_share(file.get());
    return kel::system::close_file(std::move(file));
}
