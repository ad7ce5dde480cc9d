// An hour of everything at once: a name server, a server with threads, a server with a loop and clients of
// all manners, each in a process of its own, under one roof that watches whether they stay flat.
//
// The roles share a page of counters and know each other by the name server alone, as programs do.
#pragma once

#include <array>
#include <atomic>
#include <string>

namespace soak {

enum Counter {
    Asked,     // ints there and back, to the server with threads
    Looped,    // the same to the server with a loop
    Jobs,      // asynchronous requests that report progress, some of them abandoned
    Alive,     // questions for life and version
    Records,   // registered, found and deleted
    Vanished,  // servers that were killed, and their records gone
    Resets,    // connections that were reset, wherever they stood
    Silent,    // connections that said nothing, or half of something
    Launched,  // processes
    Failures,
    CounterCount
};
constexpr const char *counter_names[CounterCount] = {"asked",    "looped", "jobs",   "alive",    "records",
                                                     "vanished", "resets", "silent", "launched", "failures"};

struct Shared {
    std::array<std::atomic<long long>, CounterCount> counts;
    std::atomic<bool> stop;  // the clients let go of everything and end
};
static_assert(std::atomic<long long>::is_always_lock_free);

// Mapped from a file that all processes know.
Shared &shared(const std::string &path);
inline void count(Shared &page, Counter counter) {
    ++page.counts[counter];
}
void fail(Shared &page, const std::string &what);  // counted, and told on standard error

constexpr const char *threads_name = "soak threads", *loop_name = "soak loop";

// What begins a request of the server with threads, behind the handshake.
enum Request : int {
    Sum = 1,    // a count and so many ints: their sum
    Job = 2,    // a count: so many progress ints, a millisecond apart
    Launch = 3  // a process: its exit code
};

// Roles: each runs until it is killed, the clients until they are told. They announce themselves with a line.
void serve_names(const std::string &folder);
void serve_threads();
void serve_loop();
void serve_briefly(const std::string &name);
void be_clients(Shared &page, int threads, const std::string &self);
void announce(int port);

struct Options {
    double seconds = 3'600, every = 60;
    int clients = 6;
};
// Starts all of them and watches. The program's exit status.
int watch(const Options &options, const std::string &self);

}  // namespace soak
