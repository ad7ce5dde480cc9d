// Pipes and connections of a relay.
#include "runtime/relay.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <kelstdmt/vumrt.h>

#include "runtime/posix/pipe_signal.h"
#include "runtime/posix/through_signals.h"

namespace kel::system {

namespace {

constexpr int large_pipe = 262144;
constexpr int most_unsent = 131072;
// Seconds of silence until the peer is asked, between questions, and how many may stay unanswered.
constexpr int silence = 60, between = 15, unanswered = 4;

std::ptrdiff_t failure() noexcept {
    if (errno == EAGAIN || errno == EWOULDBLOCK) return io_would_wait;
    Error_SetLastFromSystem(errno);
    return io_failed;
}

void set(int socket, int level, int option, int value) noexcept {
    ::setsockopt(socket, level, option, &value, sizeof value);
}

}  // namespace

void set_nonblocking(int fd) noexcept {
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
}

void enlarge_pipe(int fd) noexcept {
    ::fcntl(fd, F_SETPIPE_SZ, large_pipe);
}

std::ptrdiff_t read_now(int fd, char *to, std::size_t room) {
    const ssize_t got = through_signals([&] { return ::read(fd, to, room); });
    return got >= 0 ? got : failure();
}

std::ptrdiff_t receive_now(int socket, char *to, std::size_t room) {
    const ssize_t got = through_signals([&] { return ::recv(socket, to, room, MSG_DONTWAIT); });
    return got >= 0 ? got : failure();
}

std::ptrdiff_t write_now(int fd, const char *bytes, std::size_t count) {
    const ssize_t written = through_signals([&] { return ::write(fd, bytes, count); });
    return written >= 0 ? written : failure();
}

struct no_pipe_signals::state {
    no_pipe_signal guard;
};

// One that is pending at the end and was not before is ours.
no_pipe_signals::no_pipe_signals() : m_state(std::make_unique<state>()) {
    m_state->guard.caused();
}
no_pipe_signals::~no_pipe_signals() = default;

void prepare_relayed_connection(int socket) noexcept {
    set(socket, IPPROTO_TCP, TCP_NOTSENT_LOWAT, most_unsent);
    set(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
    set(socket, IPPROTO_TCP, TCP_KEEPIDLE, silence);
    set(socket, IPPROTO_TCP, TCP_KEEPINTVL, between);
    set(socket, IPPROTO_TCP, TCP_KEEPCNT, unanswered);
}

void shut_down_connection(int socket) noexcept {
    ::shutdown(socket, SHUT_RDWR);
}

}  // namespace kel::system
