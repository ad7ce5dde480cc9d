// What the trace needs of the system.
#pragma once

#include <string_view>

namespace kel::system {

// Null as well in a program with more rights than its caller, who must not choose where it writes.
const char *trusted_environment(const char *name) noexcept;
// As debuggers and lists of processes name this thread.
long thread_number() noexcept;
// With one write, at the end of the file, or on standard error when the path is empty. The file is opened for
// each line: a descriptor that is kept would be closed, and its number used again, by a program that becomes
// a daemon. What cannot be taken at once is left out; nothing is raised. False leaves the last error.
bool append_line(const char *path, std::string_view line) noexcept;

}  // namespace kel::system
