// What a relay between pipes and a connection needs of the system: nothing here waits.
#pragma once

#include <cstddef>
#include <memory>

namespace kel::system {

// In place of a count of bytes. A failure leaves the last error.
constexpr std::ptrdiff_t io_failed = -1, io_would_wait = -2;

// For a pipe's end: reads and writes through it do not wait from now on. The other end is left as it is.
void set_nonblocking(int fd) noexcept;
// Makes a pipe that is full again and again hold more, where the system lets it.
void enlarge_pipe(int fd) noexcept;

// read_now, for a pipe's end as above, and receive_now, for any socket: 0 at the end of the data. write_now,
// while this thread has no_pipe_signals: how many bytes were taken.
std::ptrdiff_t read_now(int fd, char *to, std::size_t room);
std::ptrdiff_t receive_now(int socket, char *to, std::size_t room);
std::ptrdiff_t write_now(int fd, const char *bytes, std::size_t count);

// While one lives, writes of this thread to a pipe that nobody reads raise no signal.
class no_pipe_signals {
public:
    no_pipe_signals();
    ~no_pipe_signals();
    no_pipe_signals(const no_pipe_signals &) = delete;
    no_pipe_signals &operator=(const no_pipe_signals &) = delete;

private:
    struct state;
    std::unique_ptr<state> m_state;
};

// Has a silent death of the peer's machine noticed within minutes, and keeps little that the peer's machine
// has not taken yet, so that what is sent next does not wait behind it.
void prepare_relayed_connection(int socket) noexcept;
// Ends the connection in both directions; the descriptor stays open.
void shut_down_connection(int socket) noexcept;

// As Process_Wait without waiting, but the end is not collected, so that what is left of the process's group
// can still be ended.
bool peek_exit_code(int process, long &exit_code);

}  // namespace kel::system
