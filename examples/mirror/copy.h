// The first process: copies, verifies, and keeps its settings and its record.
#pragma once

#include <string>

#include <kelstdmt/kelstdmt.h>

struct Job {
    std::string from, to;
    std::string state;  // the folder of the monitor file and of the configuration file
    fsRecursiveCopyMode existing = fsForceNew;
};

inline constexpr const char *progress_name = "progress.mon";
inline constexpr const char *record_name = "mirror.conf";

// False, explained on standard error, when the copy differs. Throws what the library and the standard library
// throw.
bool Copy(const Job &job);

// The exception that is being handled, in one line.
std::string WhatHappened();
