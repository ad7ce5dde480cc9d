// Time as tests measure it, and signals that come in between.
#pragma once

#include <signal.h>
#include <sys/time.h>

#include <atomic>
#include <chrono>

// How long the action took.
template <class Action>
double seconds(Action action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Interrupts every call of the system that can be, every five milliseconds.
class Interruptions {
public:
    Interruptions() {
        struct sigaction action {};
        action.sa_handler = [](int) { ++ticks; };
        ::sigaction(SIGALRM, &action, &m_before);
        set(5000);
    }
    ~Interruptions() {
        set(0);
        ::sigaction(SIGALRM, &m_before, nullptr);
    }
    static inline std::atomic<int> ticks = 0;

private:
    static void set(int micros) {
        const itimerval timer{{0, micros}, {0, micros}};
        ::setitimer(ITIMER_REAL, &timer, nullptr);
    }
    struct sigaction m_before {};
};
