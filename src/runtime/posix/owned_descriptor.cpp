// Closing what an owner held.
#include "runtime/owned_descriptor.h"

#include <unistd.h>

#include <cerrno>

#include "runtime/posix/uncancelled.h"

void kel::system::owned_descriptor::reset(int fd) noexcept {
    const int old = std::exchange(m_fd, fd);
    if (old < 0) return;
    const uncancelled scope;
    const int before = errno;
    ::close(old);
    errno = before;
}
