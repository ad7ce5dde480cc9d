// Tells somebody at a terminal how far the search is: one line on standard error that is overwritten five
// times a second, and wiped before anything else is written.
#pragma once

#include <chrono>
#include <cstdint>

class Progress {
public:
    explicit Progress(bool wanted);
    ~Progress() { Wipe(); }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void Step(std::uint64_t selected);  // one more file is searched
    void Wipe();

private:
    using clock = std::chrono::steady_clock;

    bool m_wanted, m_shown = false;
    std::uint64_t m_files = 0;
    clock::time_point m_next;
};

// Whether this file, such as /dev/stdout, is a terminal.
bool IsTerminal(const char *path);
