// What a service needs of the system: its manager, the signals by which it is told to stop, pause and go on,
// and the way to become a daemon.
#pragma once

#include <string>
#include <string_view>

namespace kel::system {

// Whether the environment named a service manager's socket when it was first asked.
bool has_service_manager() noexcept;
// Sends lines of the kind NAME=VALUE to the manager. Nothing without one; one that cannot be reached is none,
// and one that takes nothing delays for five seconds at most.
void tell_service_manager(std::string_view lines) noexcept;

// Called by signal handlers.
struct service_requests {
    void (*stop)() noexcept;
    void (*pause)() noexcept;
    void (*go_on)() noexcept;
};

// Has the signals call these while it lives, and lets this thread receive them. One at a time in a process.
class service_signals {
public:
    // In the foreground the terminal's interrupt means stop, unless the program was started with it ignored.
    service_signals(const service_requests &requests, bool foreground) noexcept;
    ~service_signals();
    service_signals(const service_signals &) = delete;
    service_signals &operator=(const service_signals &) = delete;
};

// As those in netlib_service.h; the reason is a sentence without its end.
bool become_daemon(const char *pid_file, std::string &reason);
void daemon_ready() noexcept;

}  // namespace kel::system
