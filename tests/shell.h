// Commands in a shell, as users give them.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <ostream>
#include <string>

struct Outcome {
    std::string out;  // standard output
    int status = -1;  // of the exit; 128 and the signal's number when one ended the shell
    std::string err = {};

    bool operator==(const Outcome &) const = default;
};
inline std::ostream &operator<<(std::ostream &to, const Outcome &outcome) {
    return to << '"' << outcome.out << "\" with status " << outcome.status << '\n' << outcome.err;
}

// What a command prints on its standard output, and how it ends.
inline Outcome shell(const std::string &command) {
    Outcome outcome;
    std::FILE *pipe = ::popen(command.c_str(), "r");
    if (!pipe) return outcome;
    char block[4096];
    while (std::size_t count = std::fread(block, 1, sizeof block, pipe))
        outcome.out.append(block, count);
    const int status = ::pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return outcome;
}
