// How a command of kel ends: its exit code, and what it tells of failures.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <kelstdmt/kel.h>

namespace tool {

enum ExitCode : int { done = 0, failed = 1, wrong_usage = 2 };

// The reason why a command ends with `failed`: one line, shown behind the command's name.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
// A command line that is wrong in a way that only the command can tell: `wrong_usage`.
class Misuse : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
// "WHAT: PATH: why", with the library's last error for the reason.
Failure LastErrorFailure(std::string_view what, std::string_view path);

// The command that runs, "kel reg ls"; "kel" before one is known.
std::string CommandName();
// Complains on standard error, "kel COMMAND: TEXT", and goes on.
void Complain(std::string_view text);
// From now on what the library reports as an internal error is a complaint as well; or kept, while Reports
// lives.
void ListenToReports();
class Reports {
public:
    Reports();
    ~Reports();
    Reports(const Reports &) = delete;
    Reports &operator=(const Reports &) = delete;

    std::vector<std::string> Take();  // those since the last call
};
bool AnythingReported();

// An exception of the framework as one line: what it says, the path that it concerns, the reason.
std::string Explained(const kel::caught &error);

}  // namespace tool
