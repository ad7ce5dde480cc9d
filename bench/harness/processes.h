// Programs that work for a benchmark, each in a process of its own: its memory is its own, and threads that
// some library left behind do no harm. They go with the benchmark, whatever way that ends.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace bench {

// To be called first thing with a single argument of main: true when it says that this process works for
// another, which it has done now. `work` does what an OwnProcess was made for; false when it knows no such
// word.
bool serve(const char *argument, const std::function<bool(std::string_view word)> &work);
// In that work: it is ready. The number is what the OwnProcess tells, a port as a rule.
void announce(int number);

// This program again, until this object goes. It is told by SIGTERM, as when the benchmark is gone.
class OwnProcess {
public:
    // Ends the program when the work does not begin. It runs where the caller is held (see Placed).
    explicit OwnProcess(const std::string &word);
    ~OwnProcess();
    OwnProcess(const OwnProcess &) = delete;
    OwnProcess &operator=(const OwnProcess &) = delete;

    pid_t id() const { return m_id; }
    int port() const { return m_announced; }
    std::size_t resident_bytes() const;

private:
    pid_t m_id;
    int m_announced;
};

// Another program, until this object goes: it is killed.
class OtherProcess {
public:
    explicit OtherProcess(const std::string &shell_words);
    ~OtherProcess();
    OtherProcess(const OtherProcess &) = delete;
    OtherProcess &operator=(const OtherProcess &) = delete;
    pid_t id() const { return m_id; }
    bool is_running() const;

private:
    pid_t m_id;
};

// Tries until it is true, for ten seconds.
bool await(const std::function<bool()> &condition);

}  // namespace bench
