// How a heavy case times its phases. One thread: processor time of the thread, which other programs of the
// machine disturb least. Several threads or processes: the wall clock.
#pragma once

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <time.h>

#include <cstddef>
#include <string>

namespace bench {

inline double seconds_of(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <class Work>
double seconds_of_work(Work work) {
    double begin = seconds_of(CLOCK_THREAD_CPUTIME_ID);
    work();
    benchmark::ClobberMemory();
    return seconds_of(CLOCK_THREAD_CPUTIME_ID) - begin;
}

// Of one run; short work runs again until a millisecond is over.
template <class Work>
double seconds_of_repeated(Work work) {
    double seconds = 0;
    int runs = 0;
    for (int next = 1; seconds < 1e-3; next *= 2) {
        seconds += seconds_of_work([&] {
            for (int i = 0; i < next; ++i)
                work();
        });
        runs += next;
    }
    return seconds / runs;
}

// Stores nanoseconds an operation under the name of the phase, where the table finds them.
template <class Work>
void time_phase(benchmark::State &state, const char *phase, std::size_t operations, Work work) {
    state.counters[phase] = seconds_of_work(work) * 1e9 / static_cast<double>(operations);
}

// The same by the wall clock.
template <class Work>
void time_wall_phase(benchmark::State &state, const char *phase, std::size_t operations, Work work) {
    const double begin = seconds_of(CLOCK_MONOTONIC);
    work();
    state.counters[phase] = (seconds_of(CLOCK_MONOTONIC) - begin) * 1e9 / static_cast<double>(operations);
}

// The name of a phase that is the whole of a case.
inline constexpr const char *whole = "time";

// A heavy case runs once for each of the runner's repetitions. `work` answers what went wrong, or null. What
// the runs before have left on the heap is put in order ahead of it, so that nobody pays for his neighbour.
template <class Work>
void run_once(benchmark::State &state, Work work) {
    const char *wrong = nullptr;
    malloc_trim(0);
    while (state.KeepRunning())
        wrong = work();
    if (wrong) state.SkipWithError(wrong);
}

}  // namespace bench
