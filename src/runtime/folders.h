// The folders that a process stands in, as host paths.
#pragma once

#include <string>

namespace kel::system {

// Empty, with the last error set, when it cannot be told: it was removed, or its path is too long.
std::string current_folder();
bool change_folder(const std::string &host_path);

// Of the user whom the process runs for, by the user database; empty when that knows none.
std::string home_folder();

}  // namespace kel::system
