// A file buffer with a lock on its file. The lock belongs to the open file, so that two buffers of one
// process keep each other out as two processes do, and closing another descriptor of the same file does
// not drop it.
//
// A lock is on a file, not on its name, and a holder may have put a new file under the name. So the name is
// followed once more when the lock is held, and what is no longer found there is let go.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#define _FILE_OFFSET_BITS 64

#include "runtime/posix/locked_file.h"

#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include <kelstdmt/vumtext.h>

#include "runtime/posix/file_lock.h"
#include "runtime/posix/uncancelled.h"

namespace {

using clock_type = std::chrono::steady_clock;
using time_point = clock_type::time_point;

// A wait for a lock that ends at a time. The system's own wait has no end, and could only be broken by a
// signal, whose handling is the program's; so a thread waits there, which can be told to end.
class lock_wait {
public:
    lock_wait(int fd, short kind) : m_fd(fd), m_lock(kel::system::whole_file(kind)) {}

    ~lock_wait() { End(); }
    lock_wait(const lock_wait &) = delete;
    lock_wait &operator=(const lock_wait &) = delete;

    // 0 or an errno value; EAGAIN when the time was over.
    int Until(time_point end) {
        if (int refused = Start()) return refused;
        {
            std::unique_lock guard(m_mutex);
            m_done.wait_until(guard, end, [this] { return m_result >= 0; });
        }
        End();
        return m_result >= 0 ? m_result : EAGAIN;
    }

private:
    int Start() {
        constexpr std::size_t little_stack = 256 * 1024;
        pthread_attr_t attributes;
        if (int refused = ::pthread_attr_init(&attributes)) return refused;
        ::pthread_attr_setstacksize(&attributes, little_stack);
        sigset_t all, before;  // the program's handlers are not for this thread
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &before);
        int refused = ::pthread_create(&m_thread, &attributes, &lock_wait::Run, this);
        m_runs = refused == 0;
        ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
        ::pthread_attr_destroy(&attributes);
        return refused;
    }

    void End() noexcept {
        if (!std::exchange(m_runs, false)) return;
        const kel::system::uncancelled scope;
        ::pthread_cancel(m_thread);  // nothing to one that has its result
        ::pthread_join(m_thread, nullptr);
    }

    // Only the wait itself can be cancelled, and it holds nothing. The address sanitizer is not told of
    // frames that a cancelled thread leaves.
    [[gnu::no_sanitize_address]] static void *Run(void *argument) {
        auto &self = *static_cast<lock_wait *>(argument);
        int result = ::fcntl(self.m_fd, F_OFD_SETLKW, &self.m_lock) == 0 ? 0 : errno;
        int ignored;
        ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
        std::lock_guard guard(self.m_mutex);
        self.m_result = result;
        self.m_done.notify_one();
        return nullptr;
    }

    std::mutex m_mutex;
    std::condition_variable m_done;
    int m_result = -1;  // until there is one
    pthread_t m_thread{};
    bool m_runs = false;
    int m_fd;
    struct flock m_lock;
};

bool lock_until(int fd, short kind, time_point end) {
    if (kel::system::set_lock(fd, kind)) return true;
    int reason = errno;
    if (reason == EAGAIN || reason == EACCES)
        reason = clock_type::now() < end ? lock_wait(fd, kind).Until(end) : EAGAIN;
    if (reason != 0) Error_SetLastFromSystem(reason);
    return reason == 0;
}

bool leads_to(const char *path, int fd) {
    struct stat named {
    }, open{};
    return ::stat(path, &named) == 0 && ::fstat(fd, &open) == 0 && named.st_ino == open.st_ino &&
           named.st_dev == open.st_dev;
}

// Opening one may wait for ever, or do something.
bool is_special(const char *path) {
    struct stat node {};
    return ::stat(path, &node) == 0 && !S_ISREG(node.st_mode) && !S_ISDIR(node.st_mode);
}

std::string without_links(const char *path) {
    char resolved[PATH_MAX];
    return ::realpath(path, resolved) ? resolved : std::string();
}

}  // namespace

bool lockFileBuf::Open(const char *name, int mode, int protection, double wait) {
    bool writes = mode & (Out | Append);
    bool empties = writes && ((mode & Truncate) || !(mode & (In | AtEnd | Append)));
    // Not emptied before the lock is held: others may be at work on it.
    int gentle = mode & ~Truncate;
    if (empties && !(mode & (In | Append))) gentle |= AtEnd;
    if (!writes) gentle |= NoCreate;
    constexpr double longest_wait = 1e6;
    const time_point end =
        clock_type::now() + std::chrono::duration_cast<clock_type::duration>(
                                std::chrono::duration<double>(wait > 0 ? std::min(wait, longest_wait) : 0));
    const std::string host = btkHostPath(name);
    constexpr int free_attempts = 16;
    for (int attempt = 0;; ++attempt) {
        if (!IsOpen() && is_special(host.c_str())) {
            Error_SetLastFromSystem(ENOTSUP);
            return true;
        }
        if (!btkFileBuf::Open(name, gentle, protection)) return true;
        if (!lock_until(GetHandle(), writes ? short{F_WRLCK} : short{F_RDLCK}, end)) break;
        if (writes) m_path = without_links(host.c_str());
        const int reason = errno;
        // The name leads here, and nothing says where that is.
        if (writes && m_path.empty() && leads_to(host.c_str(), GetHandle())) {
            Error_SetLastFromSystem(reason);
            break;
        }
        if (leads_to(writes ? m_path.c_str() : host.c_str(), GetHandle())) {
            if (empties && !File_Truncate(GetHandle(), 0)) break;
            // While it waited, others may have changed the end.
            if (empties || (mode & AtEnd)) pubseekoff(0, std::ios_base::end);
            return false;
        }
        if (attempt >= free_attempts && clock_type::now() >= end) {
            Error_SetLastFromSystem(EAGAIN);
            break;
        }
        btkFileBuf::Close();
    }
    int reason = Error_GetLast();
    btkFileBuf::Close();
    Error_SetLast(reason);
    return true;
}

bool lockFileBuf::Replace(std::string_view bytes) {
    if (!IsOpen() || (::fcntl(GetHandle(), F_GETFL) & O_ACCMODE) == O_RDONLY) {
        Error_SetLastFromSystem(IsOpen() ? EACCES : EBADF);
        return false;
    }
    if (pubsync() != 0) return false;
    kel::system::owned_descriptor file = kel::system::replace_file(m_path, GetHandle(), bytes);
    if (!file) return false;
    ::fcntl(file.get(), F_SETFL, ::fcntl(GetHandle(), F_GETFL));
    // The new file gets the number of the old one, which is closed by that and loses its lock.
    while (::dup3(file.get(), GetHandle(), O_CLOEXEC) < 0 && (errno == EINTR || errno == EBUSY)) {
    }
    pubseekoff(0, std::ios_base::beg);
    return true;
}

bool lockFileBuf::Close() {
    return btkFileBuf::Close();
}
