// fsiFile: a file of the host, each call one call there.
#include <utility>

#include <kelstdmt/filelib_nodes.h>
#include <kelstdmt/vumrt_stream.h>

#include "filelibsrc/path_checks.h"
#include "filelibsrc/whole_bytes.h"
#include "runtime/nodes.h"

using kel::system::file_demand;
using kel::system::owned_descriptor;

namespace {

constexpr int access_denied = 5, wrong_handle = 6;

bool is_open(bool opened, bool in_its_mode = true) noexcept {
    if (!opened || !in_its_mode) Error_SetLast(opened ? access_denied : wrong_handle);
    return opened && in_its_mode;
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
    m_writes = mode != fsForReading;
    kel::system::open_file opened = m_writes ? kel::system::open_to_write(host_path.c_str(), file_demand::any)
                                             : kel::system::open_to_read(host_path.c_str(), file_demand::any);
    if (!opened.file) return false;
    m_plain = opened.is_plain();
    if (m_plain && !kel::system::take_share(opened.file.get(), m_writes)) return false;
    m_handle = opened.file.release();
    return m_opened = true;
}

fsIOStatus fsiFile::Read(void *buffer, unsigned count, unsigned *got) {
    const long long bytes =
        is_open(m_opened, !m_writes) ? kel::system::read_bytes(m_handle, buffer, count) : -1;
    if (got) *got = bytes > 0 ? static_cast<unsigned>(bytes) : 0;
    return bytes < 0 ? fsIOFailed : bytes == 0 ? fsIOEnd : fsIODone;
}

fsIOStatus fsiFile::Write(const void *buffer, unsigned count, unsigned *done) {
    std::size_t bytes = 0;
    const bool may_write = is_open(m_opened, m_writes);
    if (may_write)
        bytes = m_plain ? kel::system::write_bytes(m_handle, buffer, count)
                        : kel::system::write_stream(m_handle, buffer, count);
    if (done) *done = static_cast<unsigned>(bytes);
    return may_write && bytes == count ? fsIODone : fsIOFailed;
}

bool fsiFile::Truncate(double size) {
    long long bytes;
    return is_open(m_opened, m_writes) && kel::detail::whole_bytes(size, bytes) &&
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
