// Connecting: the addresses of a host are tried in their order, each next one a little later or as soon as
// one has failed, and the first that answers wins. So an address that swallows everything costs a quarter of
// a second and not the whole time.
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "runtime/owned_descriptor.h"
#include "runtime/posix/socket_address.h"
#include "runtime/posix/through_signals.h"
#include "runtime/posix/waiting.h"

using namespace kel::system;

namespace {

constexpr int wrong_argument = 87, time_ran_out = 1460;
constexpr std::int64_t head_start = nanos_per_second / 4;

class race {
public:
    explicit race(std::int64_t deadline) noexcept : m_deadline(deadline) {}

    // The connection, or none with errno set: ETIMEDOUT also when the time ran out.
    owned_descriptor run(const std::vector<socket_address> &addresses);
    const socket_address &winner() const noexcept { return m_runners.front().address; }

private:
    struct attempt {
        owned_descriptor fd;
        socket_address address;
    };

    bool start(const socket_address &address);
    bool has_won(attempt &runner);
    bool look(const std::vector<pollfd> &told);

    std::vector<attempt> m_runners;
    std::int64_t m_deadline;
    int m_error = 0;
};

// Whether it is connected already.
bool race::start(const socket_address &address) {
    owned_descriptor fd(::socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) {
        m_error = errno;
        return false;
    }
    const int on = 1;
    ::setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    int result = ::connect(fd.get(), address.get(), address.size);
    // A peer on this machine has answered by now, which the call tells when it is made again.
    if (result != 0 && errno == EINPROGRESS) result = ::connect(fd.get(), address.get(), address.size);
    // A connect that a signal interrupts goes on by itself.
    if (result != 0 && errno != EINPROGRESS && errno != EALREADY && errno != EINTR) {
        m_error = errno;
        return false;
    }
    m_runners.push_back({std::move(fd), address});
    if (result == 0) std::swap(m_runners.front(), m_runners.back());
    return result == 0;
}

bool race::has_won(attempt &runner) {
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(runner.fd.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
    if (error == 0) return true;
    m_error = error;
    return false;
}

// Whether one has won, which is the first then; those that failed are gone.
bool race::look(const std::vector<pollfd> &told) {
    for (std::size_t at = 0; at < told.size(); ++at) {
        if (!told[at].revents) continue;
        if (has_won(m_runners[at])) {
            std::swap(m_runners.front(), m_runners[at]);
            return true;
        }
        m_runners[at].fd.reset();
    }
    std::erase_if(m_runners, [](const attempt &runner) { return !runner.fd; });
    return false;
}

owned_descriptor race::run(const std::vector<socket_address> &addresses) {
    m_error = ETIMEDOUT;
    std::size_t next = 0;
    while (next < addresses.size() || !m_runners.empty()) {
        const bool may_start = next < addresses.size();
        if (may_start && start(addresses[next++])) return std::move(m_runners.front().fd);
        std::int64_t next_start = next < addresses.size() ? deadline_in(head_start) : never;
        for (bool wait = true; wait && !m_runners.empty();) {
            std::vector<pollfd> polled;
            for (const attempt &runner : m_runners)
                polled.push_back({runner.fd.get(), POLLOUT, 0});
            const std::int64_t until = std::min(m_deadline, next_start);
            const std::size_t before = polled.size();
            const int result = poll_until(polled.data(), before, left_until(until), until);
            if (look(polled)) return std::move(m_runners.front().fd);
            if (result == 0 && until == m_deadline) {
                errno = ETIMEDOUT;
                return {};
            }
            wait = result > 0 && (m_runners.size() == before || next == addresses.size());
        }
    }
    errno = m_error;
    return {};
}

// A port of the range that the system gives to callers may be given to this very caller, who then talks to
// itself.
bool is_connected_to_itself(int fd, const socket_address &peer) {
    socket_address own;
    return ::getsockname(fd, own.room(), &own.size) == 0 && plain(own) == plain(peer);
}

}  // namespace

bool btkStreamSocket::Connect(const char *host, int port, const btkTimeval &timeout) {
    Close();
    if (!kel::is_text(host) || !*host || port <= 0 || port > 65535) {
        Error_SetLast(wrong_argument);
        return false;
    }
    const std::int64_t deadline = deadline_in(to_nanos(timeout));
    auto connect = [&](const std::vector<socket_address> &addresses) {
        race race(deadline);
        owned_descriptor fd = race.run(addresses);
        if (fd && is_connected_to_itself(fd.get(), race.winner())) {
            fd.reset();
            errno = ECONNREFUSED;
        }
        if (!fd) {
            Error_SetLastFromSystem(errno);
            if (errno == ETIMEDOUT) Error_SetLast(time_ran_out);
            return false;
        }
        ::fcntl(fd.get(), F_SETFL, 0);
        Take(fd.release(), plain(race.winner()));
        return true;
    };
    if (auto numeric = numeric_address(host, port); !numeric.empty()) return connect(numeric);
    if (is_name_of_this_machine(host) && connect(loopback_addresses(port))) return true;
    const auto resolved = resolve(host, port);
    return !resolved.empty() && connect(resolved);
}
