// Tells somebody at a terminal how far long work is: one line on standard error that is overwritten, appears
// only when the work takes longer than a second, and is wiped before anything else is written there.
//
// It also carries out what Ctrl+C asks for: the work is taken back as after a failure.
#pragma once

#include <chrono>

#include <kelstdmt/filelib.h>

#include "terminal.h"

namespace tool {

class Progress {
public:
    Progress();
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // Throws Interrupted when the process was asked to end.
    struct Interrupted {};
    kel::file_observer Observer();
    // The counts of the file or tree at work are done; those of the next one come on top.
    void Add();

    static void WipeAll();  // the one that is on the terminal now

private:
    using clock = std::chrono::steady_clock;

    void Step(const kel::file_progress &now);
    void Show(const kel::file_progress &now);
    void Wipe();

    Interruption m_interruption;
    bool m_wanted, m_shown = false;
    clock::time_point m_start = clock::now(), m_next = m_start + std::chrono::seconds(1);
    double m_files = 0, m_bytes = 0;          // of what is done
    double m_now_files = 0, m_now_bytes = 0;  // of what is at work
};

}  // namespace tool
