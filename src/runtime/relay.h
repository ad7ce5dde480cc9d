// What a relay between pipes and a connection needs of the system: nothing here waits.
#pragma once

#include <cstddef>

namespace kel::system {

// In place of a count of bytes. A failure leaves the last error.
constexpr std::ptrdiff_t io_failed = -1, io_would_wait = -2;

// For a pipe's end: reads and writes through it do not wait from now on. The other end is left as it is.
void set_nonblocking(int fd) noexcept;
// Makes a pipe that is full again and again hold more, where the system lets it.
void enlarge_pipe(int fd) noexcept;

// read_now: 0 at the end of the data. write_now: how many bytes were taken; raises no signal.
std::ptrdiff_t read_now(int fd, char *to, std::size_t room) noexcept;
std::ptrdiff_t write_now(int fd, const char *bytes, std::size_t count) noexcept;

// Has a silent death of the peer's machine noticed within minutes, and keeps little that the peer's machine
// has not taken yet, so that what is sent next does not wait behind it.
void prepare_relayed_connection(int socket) noexcept;
// Ends the connection in both directions; the descriptor stays open.
void shut_down_connection(int socket) noexcept;

// As Process_Wait without waiting, but the end is not collected, so that what is left of the process's group
// can still be ended.
bool peek_exit_code(int process, long &exit_code) noexcept;

}  // namespace kel::system
