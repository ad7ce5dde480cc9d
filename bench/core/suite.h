// What is compared. A case is one piece of work; every library that can do it adds its way of doing it, and a
// case with phases (set, find, remove) gives a row of the table for each.
//
// The cases of one thread run before the first thread of the process is created: from then on the C library
// never again tells that the process has one thread, and counts cost a bus lock.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

enum class Library { Ours, Std, Glib, Qt, Poco, Tirpc, Floor };
inline constexpr int library_count = 7;

enum class Cost {
    Light,  // nanoseconds an operation: the runner finds the number of iterations
    Heavy,  // a whole run of many operations, which times its phases itself (see stopwatch.h)
    Huge    // the same, of a second and more: fewer repetitions
};

struct Way {
    Library library;
    std::string name;  // of the type or function, as its users know it
    std::function<void(benchmark::State &)> run;
};

struct Case {
    std::string name;  // for --benchmark_filter
    std::string title;
    Cost cost = Cost::Light;
    bool threads = false;
    std::vector<std::string> phases = {};  // none: the case is one row
    std::vector<Way> ways = {};
};

class Suite {
public:
    Suite();

    // A name that is no case's is a mistake of the caller: ends the program.
    void add(std::string_view name, Library library, std::string way,
             std::function<void(benchmark::State &)> run);
    std::vector<Case> &cases() { return m_cases; }

private:
    std::vector<Case> m_cases;
};

// Each in its own unit, so that the peers' macros do not meet.
void add_ours_values(Suite &suite);
void add_ours_containers(Suite &suite);
void add_ours_streams(Suite &suite);
void add_ours_events(Suite &suite);
void add_std(Suite &suite);
void add_std_streams(Suite &suite);
void add_glib(Suite &suite);
void add_glib_objects(Suite &suite);
void add_qt(Suite &suite);
void add_qt_streams(Suite &suite);
void add_poco(Suite &suite);
void add_tirpc(Suite &suite);
void add_floor(Suite &suite);

}  // namespace bench
