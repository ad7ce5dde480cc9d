// What the daemons have in common: the options that mean the same in each of them, the request to stop, and
// the way from main to the work.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <kelstdmt/eventlib.h>

#include "log.h"

namespace service {

enum exit_code : int { done = 0, failed = 1, wrong_usage = 2 };

class work {
public:
    virtual ~work() = default;
    // Listens; in the daemon, when it is one. What failed, or "".
    virtual std::string begin() = 0;
    virtual int port() const = 0;
    virtual bool serve() = 0;  // until somebody asks to stop; false when it ends for another reason
};

// A new event: the service was asked to stop. Requests to pause are taken notice of, as there is nothing to
// pause. Null without descriptors.
std::unique_ptr<evtEvent> stop_event();

class program {
public:
    program(const std::string &name, const std::string &purpose, const std::string &port_otherwise);

    CLI::App options;  // those of the program itself are added to the common ones
    // What the options say.
    std::optional<int> port;
    std::vector<std::string> addresses;  // none: all

    log_writer &log() noexcept { return m_log; }
    // Reads the command line, becomes a daemon unless that says otherwise, and works: the exit code.
    int main(int count, char **arguments, work &what);

private:
    int serve(work &what);
    int misused(const std::string &mistake);

    log_writer m_complaints, m_log;
    bool m_is_foreground = false;
    std::string m_pid_file, m_log_file;
};

}  // namespace service
