// The file buffer: one window of bytes for reads and writes, at one position. Reads and writes that
// follow one another inside the window cost no system call; only the bytes that were written go to the
// file, never their neighbours that were only read, which others may have changed meanwhile.
//
// Reads and writes name their place in the file, so the descriptor's own offset never has to be kept in
// step. What cannot seek has no places and is read and written in order.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#define _FILE_OFFSET_BITS 64

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include <kelstdmt/vumrt_stream.h>

#include "runtime/nodes.h"
#include "runtime/posix/descriptor.h"
#include "runtime/posix/through_signals.h"
#include "runtime/posix/uncancelled.h"

using namespace kel::system;

static_assert(sizeof(off_t) == 8);

namespace {

constexpr std::size_t buffer_size = 65536;
constexpr std::size_t first_read = 4096;  // after a seek: a far seek may be for a few bytes only

// As ::open, but through interruptions, and with the last error set. -1 on failure and for folders; with
// O_NONBLOCK for all but plain files.
int open_host(const std::string &host_path, int flags, int protection) {
    owned_descriptor fd(through_signals([&] {
        return ::open(host_path.c_str(), flags | O_CLOEXEC | O_NOCTTY, static_cast<mode_t>(protection));
    }));
    if (!fd) {
        const bool is_socket = errno == ENXIO && (flags & O_NONBLOCK);
        Error_SetLastFromSystem(is_socket ? ENOTSUP : errno, host_path.c_str());
        return -1;
    }
    struct stat node {};
    const bool found = ::fstat(fd.get(), &node) == 0, is_plain = found && S_ISREG(node.st_mode);
    if (is_plain || (found && !S_ISDIR(node.st_mode) && !(flags & O_NONBLOCK))) return fd.release();
    Error_SetLastFromSystem(S_ISDIR(node.st_mode) ? EISDIR : ENOTSUP);
    return -1;
}

// The flags for ::open; -1 for modes that make no sense.
int open_flags(int mode) {
    bool in = mode & btkFileBuf::In, out = mode & (btkFileBuf::Out | btkFileBuf::Append);
    if (!in && !out) return -1;
    int flags = in && out ? O_RDWR : out ? O_WRONLY : O_RDONLY;
    if (mode & btkFileBuf::Append) flags |= O_APPEND;
    if (mode & btkFileBuf::Plain) flags |= O_NONBLOCK;  // a FIFO without a peer keeps others waiting
    bool keeps = mode & (btkFileBuf::In | btkFileBuf::AtEnd | btkFileBuf::Append);
    if (out && (!keeps || (mode & btkFileBuf::Truncate))) flags |= O_TRUNC;
    if (!(mode & btkFileBuf::NoCreate)) {
        flags |= O_CREAT;
        if (mode & btkFileBuf::NoReplace) flags |= O_EXCL;
    } else if (mode & btkFileBuf::NoReplace) {
        return -1;  // neither an existing file nor a new one
    }
    return flags;
}

}  // namespace

// Opening and closing --------------------------------------------------------------------------

btkFileBuf::btkFileBuf() = default;

btkFileBuf::~btkFileBuf() {
    const uncancelled scope;
    Close();
}

bool btkFileBuf::Open(const char *path, int mode, int protection) {
    int flags = open_flags(mode);
    if (IsOpen() || flags < 0) {
        Error_SetLastFromSystem(EINVAL);
        return false;
    }
    m_fd = open_host(btkHostPath(path), flags, protection);
    if (m_fd < 0) return false;
    m_mode = mode & Append ? mode | Out : mode;
    off_t start = ::lseek(m_fd, 0, mode & (AtEnd | Append) ? SEEK_END : SEEK_SET);
    m_seekable = start >= 0;
    m_base = m_seekable ? start : 0;
    m_valid = m_dirty_from = m_dirty_to = m_at = 0;
    m_read_ahead = buffer_size;
    return true;
}

bool btkFileBuf::Close() {
    if (!IsOpen()) return false;
    Settle();
    const bool written = FlushDirty(), closed = close_file(owned_descriptor(std::exchange(m_fd, -1)));
    m_valid = m_dirty_from = m_dirty_to = m_at = 0;
    return written && closed;
}

// The window -----------------------------------------------------------------------------------

void btkFileBuf::MakeBuffer() {
    if (!m_buffer) m_buffer = std::make_unique_for_overwrite<char[]>(buffer_size);
}

// The position, as an index into the window.
std::size_t btkFileBuf::Here() const noexcept {
    const char *at = gptr() ? gptr() : pptr();
    return at ? static_cast<std::size_t>(at - m_buffer.get()) : m_at;
}

// Leaves reading or writing; afterwards m_at is the position and the window knows what was written.
void btkFileBuf::Settle() noexcept {
    m_at = Here();
    if (pptr() && m_at > m_run) {
        // A run begins inside the dirty bytes or at their end, so that the two make one stretch.
        m_dirty_from = m_dirty_from == m_dirty_to ? m_run : std::min(m_dirty_from, m_run);
        m_dirty_to = std::max(m_dirty_to, m_at);
        m_valid = std::max(m_valid, m_at);
    }
    setg(nullptr, nullptr, nullptr);
    setp(nullptr, nullptr);
}

// Settled. On failure what is not written yet stays, so that a later flush may succeed.
bool btkFileBuf::FlushDirty() {
    std::size_t count = m_dirty_to - m_dirty_from;
    if (count == 0) return true;
    auto base = m_base + static_cast<long long>(m_dirty_from);
    std::streamsize written = Write(m_buffer.get() + m_dirty_from, count, base);
    m_dirty_from += static_cast<std::size_t>(written);
    return m_dirty_from == m_dirty_to;
}

// Flushes and forgets the window, which begins at the position afterwards. What was read from something
// that cannot seek cannot be read again and stays.
bool btkFileBuf::Drop() {
    Settle();
    if (!FlushDirty()) return false;
    if (!m_seekable && (m_mode & In)) return true;
    m_base += static_cast<long long>(m_at);
    m_valid = m_at = m_dirty_from = m_dirty_to = 0;
    return true;
}

bool btkFileBuf::BeginWriting() {
    MakeBuffer();
    Settle();
    bool touches = m_dirty_from == m_dirty_to || (m_at >= m_dirty_from && m_at <= m_dirty_to);
    if (m_at == buffer_size || (m_mode & Append)) {
        if (!Drop()) return false;
        if (m_mode & Append) m_base = std::max<long long>(0, ::lseek(m_fd, 0, SEEK_END));
    } else if (!touches && !FlushDirty()) {
        return false;
    }
    m_run = m_at;
    setp(m_buffer.get() + m_at, m_buffer.get() + buffer_size);
    return true;
}

// The system -----------------------------------------------------------------------------------

std::streamsize btkFileBuf::Read(char *to, std::size_t count, long long at) {
    if (!m_seekable) return read_some(m_fd, to, count);
    const ssize_t got = through_signals([&] { return ::pread(m_fd, to, count, at); });
    if (got < 0) Error_SetLastFromSystem(errno);
    return got;
}

// Answers how many bytes were taken; fewer than asked is a failure.
std::streamsize btkFileBuf::Write(const char *from, std::size_t count, long long at) {
    if (!m_seekable) return static_cast<std::streamsize>(write_all(m_fd, from, count));
    return static_cast<std::streamsize>(File_WriteAt(m_fd, from, count, at));
}

// Reading --------------------------------------------------------------------------------------

btkFileBuf::int_type btkFileBuf::underflow() {
    if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
    if (!IsOpen() || !(m_mode & In)) return traits_type::eof();
    MakeBuffer();
    Settle();
    if (m_at == m_valid) {
        if (!Drop()) return traits_type::eof();
        if (std::streamsize got = Read(m_buffer.get(), m_read_ahead, m_base); got > 0) {
            m_at = 0;
            m_valid = static_cast<std::size_t>(got);
            m_read_ahead = std::min(2 * m_read_ahead, buffer_size);
        }
    }
    // At the end too: an area that is there and empty tells it.
    setg(m_buffer.get(), m_buffer.get() + m_at, m_buffer.get() + m_valid);
    return m_at < m_valid ? traits_type::to_int_type(*gptr()) : traits_type::eof();
}

std::streamsize btkFileBuf::xsgetn(char *to, std::streamsize count) {
    if (std::streamsize ready = egptr() - gptr(); count > 0 && count <= ready) {
        std::memcpy(to, gptr(), static_cast<std::size_t>(count));
        gbump(static_cast<int>(count));
        return count;
    }
    std::streamsize done = 0;
    while (done < count) {
        if (std::streamsize ready = std::min<std::streamsize>(egptr() - gptr(), count - done); ready > 0) {
            std::memcpy(to + done, gptr(), static_cast<std::size_t>(ready));
            gbump(static_cast<int>(ready));
            done += ready;
            continue;
        }
        if (!IsOpen() || !(m_mode & In)) break;
        Settle();
        if (m_at == m_valid && count - done >= static_cast<std::streamsize>(buffer_size)) {
            if (!Drop()) break;
            std::streamsize got = Read(to + done, static_cast<std::size_t>(count - done), m_base);
            if (got <= 0) break;
            m_base += got;
            done += got;
        } else if (traits_type::eq_int_type(underflow(), traits_type::eof())) {
            break;
        }
    }
    return done;
}

btkFileBuf::int_type btkFileBuf::pbackfail(int_type character) {
    if (!IsOpen() || !(m_mode & In)) return traits_type::eof();
    Settle();
    if (m_at > 0) {
        --m_at;
    } else if (!m_seekable || m_base == 0 || MoveTo(m_base - 1) == pos_type(off_type(-1))) {
        return traits_type::eof();
    }
    int_type before = underflow();
    if (traits_type::eq_int_type(before, traits_type::eof())) return before;
    if (traits_type::eq_int_type(character, traits_type::eof()) ||
        traits_type::eq_int_type(character, before))
        return traits_type::not_eof(before);
    gbump(1);  // another character than the one that is there: refused, at the old position
    return traits_type::eof();
}

// Writing --------------------------------------------------------------------------------------

std::streamsize btkFileBuf::xsputn(const char *from, std::streamsize count) {
    if (count > 0 && count <= epptr() - pptr()) {
        std::memcpy(pptr(), from, static_cast<std::size_t>(count));
        pbump(static_cast<int>(count));
        return count;
    }
    if (!IsOpen() || !(m_mode & Out) || count <= 0) return 0;
    // What cannot seek has no place for both: its input stays in the window, its output goes straight out.
    if (!m_seekable && (m_mode & In)) return Write(from, static_cast<std::size_t>(count), 0);
    std::streamsize done = 0;
    while (done < count) {
        if (pptr() == epptr() && !BeginWriting()) break;
        std::streamsize room = epptr() - pptr(), left = count - done;
        if (left > room && left >= static_cast<std::streamsize>(buffer_size)) {
            if (!Drop()) break;
            std::streamsize written = Write(from + done, static_cast<std::size_t>(left), m_base);
            m_base += written;
            done += written;
            if (written < left) break;
        } else {
            std::streamsize part = std::min(room, left);
            std::memcpy(pptr(), from + done, static_cast<std::size_t>(part));
            pbump(static_cast<int>(part));
            done += part;
        }
    }
    return done;
}

btkFileBuf::int_type btkFileBuf::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
    char byte = traits_type::to_char_type(character);
    return xsputn(&byte, 1) == 1 ? character : traits_type::eof();
}

int btkFileBuf::sync() {
    if (!IsOpen()) return -1;
    m_read_ahead = first_read;
    return Drop() ? 0 : -1;
}

// Seeking --------------------------------------------------------------------------------------

btkFileBuf::pos_type btkFileBuf::MoveTo(long long position) {
    if (position < 0 || !Drop()) return pos_type(off_type(-1));
    m_base = position;
    m_read_ahead = first_read;
    return pos_type(position);
}

btkFileBuf::pos_type btkFileBuf::seekoff(off_type offset, std::ios_base::seekdir from,
                                         std::ios_base::openmode) {
    if (!IsOpen() || !m_seekable) return pos_type(off_type(-1));
    long long origin = 0;
    if (from == std::ios_base::cur) {
        origin = m_base + static_cast<long long>(Here());
        if (offset == 0) return pos_type(origin);
    } else if (from == std::ios_base::end) {
        if (!Drop()) return pos_type(off_type(-1));
        origin = ::lseek(m_fd, 0, SEEK_END);
        if (origin < 0) return pos_type(off_type(-1));
    }
    if (offset > std::numeric_limits<long long>::max() - origin) return pos_type(off_type(-1));
    return MoveTo(origin + offset);
}

btkFileBuf::pos_type btkFileBuf::seekpos(pos_type position, std::ios_base::openmode) {
    off_type target = position;
    if (!IsOpen() || !m_seekable || target < 0) return pos_type(off_type(-1));
    Settle();
    if (target < m_base || target - m_base > static_cast<off_type>(m_valid)) return MoveTo(target);
    m_at = static_cast<std::size_t>(target - m_base);
    return position;
}

// By descriptor --------------------------------------------------------------------------------

long long File_GetSize(int handle) {
    struct stat node {};
    if (::fstat(handle, &node) == 0) return node.st_size;
    Error_SetLastFromSystem(errno);
    return -1;
}

long long File_ReadAt(int handle, void *to, std::size_t count, long long position) {
    std::size_t done = 0;
    while (done < count) {
        const ssize_t got = through_signals([&] {
            return ::pread(handle, static_cast<char *>(to) + done, count - done,
                           position + static_cast<long long>(done));
        });
        if (got == 0) break;
        if (got < 0) {
            Error_SetLastFromSystem(errno);
            return -1;
        }
        done += static_cast<std::size_t>(got);
    }
    return static_cast<long long>(done);
}

long long File_WriteAt(int handle, const void *from, std::size_t count, long long position) {
    std::size_t done = 0;
    while (done < count) {
        const ssize_t written = through_signals([&] {
            return ::pwrite(handle, static_cast<const char *>(from) + done, count - done,
                            position + static_cast<long long>(done));
        });
        if (written <= 0) {
            if (written == 0) errno = ENOSPC;
            Error_SetLastFromSystem(errno);
            break;
        }
        done += static_cast<std::size_t>(written);
    }
    return static_cast<long long>(done);
}

// A write holds the file's lock from beginning to end, and a read takes none where it could meet a write half
// done; the question where data begins waits for that lock and costs little else.
void File_AwaitWrite(int handle) noexcept {
    ::lseek(handle, 0, SEEK_DATA);
}

bool File_Truncate(int handle, long long size) {
    const bool done = through_signals([&] { return ::ftruncate(handle, size); }) == 0;
    if (!done) Error_SetLastFromSystem(errno);
    return done;
}

bool File_Sync(int handle) {
    const bool done = through_signals([&] { return ::fdatasync(handle); }) == 0;
    if (!done) Error_SetLastFromSystem(errno);
    return done;
}

int File_OpenInherit(const char *path, bool read, bool write) {
    int access = read && write ? O_RDWR : write ? O_WRONLY : O_RDONLY;
    return open_host(btkHostPath(path), access | O_CREAT, btkFileBuf::openprot);
}

void File_Close(int handle) {
    owned_descriptor{handle};
}
