// What is compared. A case is one piece of work; every library that can do it adds its way of doing it, and a
// case with phases (set, find, remove) gives a row of the table for each. Cases stand in sections, and a
// section has the columns of those libraries that can do its work.
//
// The cases of one thread run before the first thread of the process is created: from then on the C library
// never again tells that the process has one thread, and counts cost a bus lock.
#pragma once

#include <benchmark/benchmark.h>

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

// Ours is what is measured, the floor and the relay what nobody can be faster than; the others are its peers.
// Called and Inlined are our own C++ functions, where those in C are measured.
enum class Library {
    Ours,
    Called,
    Inlined,
    Std,
    Glib,
    Qt,
    Poco,
    Tirpc,
    Re2,
    Pcre,
    PcreJit,
    Libc,
    Coreutils,
    Sqlite,
    SqliteFull,
    Asio,
    Rpcbind,
    Redis,
    Openssh,
    OpensshKept,
    Relay,
    Floor
};
const char *name_of(Library library);

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
    // None: the case is one row. "bytes ..." is a size, no time; "MB/s" is the time of 10^6 bytes, shown as
    // rate.
    std::vector<std::string> phases = {};
    std::vector<Way> ways = {};
};

struct Section {
    std::string title;  // printed ahead of the section's table
    std::vector<Library> columns;
    std::deque<Case> cases = {};
    // A column tells how ours stands to this one too.
    std::optional<Library> beside = std::nullopt;
};

class Suite {
public:
    void add(Section section) { m_sections.push_back(std::move(section)); }
    // A name that is no case's is a mistake of the caller: ends the program.
    void add(std::string_view name, Library library, std::string way,
             std::function<void(benchmark::State &)> run);
    std::deque<Section> &sections() { return m_sections; }

private:
    std::deque<Section> m_sections;
};

}  // namespace bench
