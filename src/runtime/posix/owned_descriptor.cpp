// Closing what an owner held.
#include "runtime/owned_descriptor.h"

#include <unistd.h>

#include <cerrno>

void kel::system::owned_descriptor::reset(int fd) noexcept {
    int before = errno;
    if (int old = std::exchange(m_fd, fd); old >= 0) ::close(old);
    errno = before;
}
