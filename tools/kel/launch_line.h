// Words as one command line, such that a launcher which splits it again (Process_Launch) finds the same
// words.
#pragma once

#include <string>
#include <vector>

namespace tool {

// The first word is the program. Throws Misuse for one that no command line can name.
std::string LaunchLine(const std::vector<std::string> &words);

}  // namespace tool
