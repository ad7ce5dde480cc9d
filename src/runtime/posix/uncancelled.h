// No cancellation of the calling thread in this scope: what is under way here must be completed. Calls of the
// system that a cancelled thread may not survive, such as close and write, end the program where nothing may
// be thrown; so what waits for others throws, and what may not throw has such a scope.
#pragma once

#include <pthread.h>

namespace kel::system {

class uncancelled {
public:
    uncancelled() noexcept { ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_before); }
    ~uncancelled() {
        int ignored;
        ::pthread_setcancelstate(m_before, &ignored);
    }
    uncancelled(const uncancelled &) = delete;
    uncancelled &operator=(const uncancelled &) = delete;

private:
    int m_before = PTHREAD_CANCEL_ENABLE;
};

}  // namespace kel::system
