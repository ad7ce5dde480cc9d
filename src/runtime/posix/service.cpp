// The service manager's socket and the signals of a service. A manager is told with single datagrams of
// NAME=VALUE lines, on a socket whose address the environment names; '@' stands for the zero byte that begins
// an abstract address.
#include "runtime/service.h"

#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "runtime/owned_descriptor.h"
#include "runtime/posix/through_signals.h"

namespace kel::system {

namespace {

// The manager ----------------------------------------------------------------------------------

struct manager_address {
    sockaddr_un address{};
    socklen_t size = 0;  // 0: none

    manager_address() noexcept {
        const char *name = std::getenv("NOTIFY_SOCKET");
        const std::size_t length = name ? std::strlen(name) : 0;
        if (length < 2 || (*name != '/' && *name != '@') || length >= sizeof address.sun_path) return;
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, name, length);
        if (*name == '@') address.sun_path[0] = '\0';
        const std::size_t terminator = *name == '/';
        size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length + terminator);
    }
};

const manager_address &manager() noexcept {
    static const manager_address known;
    return known;
}

// The signals ----------------------------------------------------------------------------------

using request = void (*service_requests::*)() noexcept;
struct service_signal {
    int number;
    request requests;
};
constexpr service_signal stop_from_terminal{SIGINT, &service_requests::stop};
// What a file cannot take is a failed write, and ends no service. A handler, because programs that are
// started would inherit an ignored signal.
constexpr service_signal too_large_file{SIGXFSZ, nullptr};
constexpr service_signal signals[] = {{SIGTERM, &service_requests::stop},
                                      {SIGUSR1, &service_requests::pause},
                                      {SIGUSR2, &service_requests::go_on},
                                      too_large_file,
                                      stop_from_terminal};

std::atomic<const service_requests *> answering{nullptr};

// Not on the stack of Run: a handler may still be at work on another thread when that comes back.
struct {
    service_requests requests;
    struct sigaction actions[std::size(signals)];
    bool taken[std::size(signals)];
    sigset_t mask;
} before;

void on_signal(int number) {
    const service_requests *to = answering.load();
    for (const service_signal &signal : signals)
        if (to && signal.number == number && signal.requests) (to->*signal.requests)();
}

sigset_t all_of_them() noexcept {
    sigset_t set;
    ::sigemptyset(&set);
    for (const service_signal &signal : signals)
        ::sigaddset(&set, signal.number);
    return set;
}

bool is_ignored(const struct sigaction &action) noexcept {
    return !(action.sa_flags & SA_SIGINFO) && action.sa_handler == SIG_IGN;
}
bool is_ours(const struct sigaction &action) noexcept {
    return !(action.sa_flags & SA_SIGINFO) && action.sa_handler == on_signal;
}

}  // namespace

bool has_service_manager() noexcept {
    return manager().size > 0;
}

void tell_service_manager(std::string_view lines) noexcept {
    if (!has_service_manager()) return;
    const owned_descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    constexpr timeval patience{5, 0};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    through_signals([&] {
        return ::sendto(socket.get(), lines.data(), lines.size(), MSG_NOSIGNAL,
                        reinterpret_cast<const sockaddr *>(&manager().address), manager().size);
    });
}

service_signals::service_signals(const service_requests &requests, bool foreground) noexcept {
    before.requests = requests;
    answering = &before.requests;
    struct sigaction ours {};
    ours.sa_handler = on_signal;
    ours.sa_flags = SA_RESTART;
    ours.sa_mask = all_of_them();
    for (std::size_t at = 0; at < std::size(signals); ++at) {
        const int number = signals[at].number;
        struct sigaction &found = before.actions[at];
        before.taken[at] = ::sigaction(number, nullptr, &found) == 0 &&
                           (number != stop_from_terminal.number || (foreground && !is_ignored(found))) &&
                           ::sigaction(number, &ours, nullptr) == 0;
    }
    ::pthread_sigmask(SIG_UNBLOCK, &ours.sa_mask, &before.mask);
}

// What somebody else has put in our place meanwhile stays.
service_signals::~service_signals() {
    for (std::size_t at = 0; at < std::size(signals); ++at) {
        const int number = signals[at].number;
        struct sigaction now {};
        if (before.taken[at] && ::sigaction(number, nullptr, &now) == 0 && is_ours(now))
            ::sigaction(number, &before.actions[at], nullptr);
    }
    ::pthread_sigmask(SIG_SETMASK, &before.mask, nullptr);
    answering = nullptr;
}

}  // namespace kel::system
