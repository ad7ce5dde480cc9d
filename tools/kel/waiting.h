// Waiting for answers of others: how long at most, and how long it took.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "command.h"

namespace tool {

// While it lives, the program has this many seconds; then it complains of having got no answer and ends.
// Nothing else bounds all that can take time: looking a name up, connecting, waiting for an answer.
class Deadline {
public:
    Deadline(double seconds, std::function<std::string()> from);
    ~Deadline();
    Deadline(const Deadline &) = delete;
    Deadline &operator=(const Deadline &) = delete;

    double Elapsed() const;  // seconds

private:
    struct State;
    std::unique_ptr<State> m_state;
};
void AddTimeout(CLI::App &line, double &seconds);
std::string DurationText(double seconds);  // "0.31 ms"

}  // namespace tool
