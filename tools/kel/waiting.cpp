#include "waiting.h"

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>

#include "text.h"

namespace tool {

using clock = std::chrono::steady_clock;

struct Deadline::State {
    std::mutex lock;
    std::condition_variable changed;
    bool over = false;
    clock::time_point begin = clock::now();
    std::thread waiter;
};

Deadline::Deadline(double seconds, std::function<std::string()> from) : m_state(std::make_unique<State>()) {
    m_state->waiter = std::thread([seconds, from = std::move(from), &state = *m_state] {
        const auto end =
            state.begin + std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(seconds));
        std::unique_lock held(state.lock);
        if (state.changed.wait_until(held, end, [&] { return state.over; })) return;
        Complain("no answer from " + from() + " within " + NumberText(seconds) + " s (--timeout)");
        std::_Exit(failed);
    });
}

Deadline::~Deadline() {
    {
        std::lock_guard held(m_state->lock);
        m_state->over = true;
    }
    m_state->changed.notify_one();
    m_state->waiter.join();
}

double Deadline::Elapsed() const {
    return std::chrono::duration<double>(clock::now() - m_state->begin).count();
}

void AddTimeout(CLI::App &line, double &seconds) {
    line.add_option("-t,--timeout", seconds, "Give up when there is no answer for so long")
        ->check(SecondsFrom(0.001))
        ->type_name("SECONDS")
        ->capture_default_str();
}

std::string DurationText(double seconds) {
    // Two digits behind the point, and no more than have passed.
    const long long microseconds = std::llround(seconds * 1e6);
    const bool is_long = microseconds >= 1000000;
    const long long hundredths = microseconds / (is_long ? 10000 : 10);
    return NumberText(static_cast<double>(hundredths) / 100) + (is_long ? " s" : " ms");
}

}  // namespace tool
