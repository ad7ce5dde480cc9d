// Tells somebody at a terminal that long work goes on: nothing in the first half second, then one line on
// standard error that is overwritten five times a second and wiped at the end.
#pragma once

#include <chrono>
#include <string>

class Progress {
public:
    Progress() = default;  // says nothing
    explicit Progress(std::string what) : m_what(std::move(what)) {}
    ~Progress() { Wipe(); }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // Called for every item; looks at the clock only now and then.
    void Step(const char *unit) {
        if (++m_items % 1024 == 0) Show(unit);
    }
    // Makes room for a message on standard error.
    void Wipe();

private:
    using clock = std::chrono::steady_clock;

    void Show(const char *unit);

    std::string m_what;
    long m_items = 0;
    bool m_shown = false;
    clock::time_point m_next = clock::now() + std::chrono::milliseconds(500);
};
