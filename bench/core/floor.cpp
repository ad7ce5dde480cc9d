// The floor under every wait: one poll over eventfds, without anything around it.
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "loops.h"

namespace bench {
namespace {

class Counter {
public:
    Counter() : m_descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~Counter() { close(m_descriptor); }
    Counter(const Counter &) = delete;
    Counter &operator=(const Counter &) = delete;

    pollfd request() const { return {m_descriptor, POLLIN, 0}; }
    void set() {
        eventfd_t one = 1;
        if (eventfd_write(m_descriptor, one) != 0) std::perror("eventfd_write");
    }
    void take() {
        eventfd_t value;
        if (eventfd_read(m_descriptor, &value) != 0) std::perror("eventfd_read");
    }
    void wait() {
        pollfd asked = request();
        while (poll(&asked, 1, -1) != 1) {
        }
        take();
    }

private:
    int m_descriptor;
};

class CounterArray {
public:
    CounterArray() : m_counters(wait_count) {
        for (Counter &counter : m_counters)
            m_requests.push_back(counter.request());
    }
    void set(int index) { m_counters[static_cast<std::size_t>(index)].set(); }
    int wait() {
        while (poll(m_requests.data(), m_requests.size(), -1) < 1) {
        }
        for (int i = 0; i < wait_count; ++i)
            if (m_requests[static_cast<std::size_t>(i)].revents) {
                m_counters[static_cast<std::size_t>(i)].take();
                return i;
            }
        return -1;
    }

private:
    std::vector<Counter> m_counters;
    std::vector<pollfd> m_requests;
};

}  // namespace

void add_floor(Suite &suite) {
    suite.add("wait/1000", Library::Floor, "poll", wait_for_one<CounterArray>);
    suite.add("wait/wake", Library::Floor, "poll", wake<Counter>);
}

}  // namespace bench
