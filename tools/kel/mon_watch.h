// kel mon watch: the table of a monitor file, drawn anew at a rate.
#pragma once

#include <string>

#include "failure.h"

namespace tool {

struct WatchOptions {
    std::string file;
    double interval = 1;  // seconds
    unsigned count = 0;   // 0: no end
};

ExitCode Watch(const WatchOptions &options);

}  // namespace tool
