// Holds a thread on one processor, so that what two threads cost each other does not depend on where the
// system places them. On a machine with one processor nothing changes.
#pragma once

#include <sched.h>

namespace bench {

class Placed {
public:
    // The place counts among the processors that the process may use, round and round.
    explicit Placed(int place) {
        if (sched_getaffinity(0, sizeof m_before, &m_before) != 0 || CPU_COUNT(&m_before) < 2) return;
        place %= CPU_COUNT(&m_before);
        for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
            if (!CPU_ISSET(processor, &m_before) || place-- != 0) continue;
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(processor, &one);
            m_placed = sched_setaffinity(0, sizeof one, &one) == 0;
            return;
        }
    }
    ~Placed() {
        if (m_placed) sched_setaffinity(0, sizeof m_before, &m_before);
    }
    Placed(const Placed &) = delete;
    Placed &operator=(const Placed &) = delete;

private:
    cpu_set_t m_before;
    bool m_placed = false;
};

}  // namespace bench
