// A file buffer with a lock on its file. The lock belongs to the open file, so that two buffers of one
// process keep each other out as two processes do, and closing another descriptor of the same file does
// not drop it.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#define _FILE_OFFSET_BITS 64

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include <kelstdmt/vumtext.h>

namespace {

using clock_type = std::chrono::steady_clock;

// A wait in the system would have no end; so it asks again, ever less often.
bool lock_whole(int fd, bool exclusive, double wait) {
    struct flock lock {};
    lock.l_type = static_cast<short>(exclusive ? F_WRLCK : F_RDLCK);
    lock.l_whence = SEEK_SET;
    constexpr double longest_wait = 1e6;
    auto deadline =
        clock_type::now() + std::chrono::duration_cast<clock_type::duration>(
                                std::chrono::duration<double>(wait > 0 ? std::min(wait, longest_wait) : 0));
    auto pause = std::chrono::milliseconds(1);
    for (;;) {
        if (::fcntl(fd, F_OFD_SETLK, &lock) == 0) return true;
        if (errno != EAGAIN && errno != EACCES && errno != EINTR) break;
        if (clock_type::now() >= deadline) {
            errno = EAGAIN;
            break;
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::milliseconds(50));
    }
    Error_SetLastFromSystem(errno);
    return false;
}

}  // namespace

bool lockFileBuf::Open(const char *name, int mode, int protection, double wait) {
    bool writes = mode & (Out | Append);
    bool empties = writes && ((mode & Truncate) || !(mode & (In | AtEnd | Append)));
    // Not emptied before the lock is held: others may be at work on it.
    int gentle = mode & ~Truncate;
    if (empties && !(mode & (In | Append))) gentle |= AtEnd;
    if (!writes) gentle |= NoCreate;
    if (!btkFileBuf::Open(name, gentle, protection)) return true;
    if (!lock_whole(GetHandle(), writes, wait) || (empties && !File_Truncate(GetHandle(), 0))) {
        int reason = Error_GetLast();
        btkFileBuf::Close();
        Error_SetLast(reason);
        return true;
    }
    // While it waited, others may have changed the end.
    if (empties || (mode & AtEnd)) pubseekoff(0, std::ios_base::end);
    return false;
}

bool lockFileBuf::Close() {
    return btkFileBuf::Close();
}
