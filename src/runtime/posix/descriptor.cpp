#include "runtime/posix/descriptor.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <kelstdmt/vumrt.h>

#include "runtime/posix/pipe_signal.h"
#include "runtime/posix/uncancelled.h"

namespace kel::system {

namespace {

void wait_for(int fd, short events) {
    pollfd request{fd, events, 0};
    ::poll(&request, 1, -1);
}

}  // namespace

two_parts::two_parts(std::string_view first, std::string_view second, std::size_t done) noexcept {
    auto add = [&](std::string_view text) {
        parts[count++] = {const_cast<char *>(text.data()), text.size()};
    };
    if (done < first.size()) add(first.substr(done));
    if (!second.empty()) add(second.substr(done > first.size() ? done - first.size() : 0));
}

std::size_t write_all(int fd, std::string_view first, std::string_view second) {
    no_pipe_signal guard;
    const std::size_t count = first.size() + second.size();
    std::size_t done = 0;
    while (done < count) {
        const two_parts parts(first, second, done);
        const ssize_t written = ::writev(fd, parts.parts, parts.count);
        if (written == 0) errno = ENOSPC;
        if (written > 0) {
            done += static_cast<std::size_t>(written);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            wait_for(fd, POLLOUT);
        } else if (errno != EINTR) {
            if (errno == EPIPE) guard.caused();
            Error_SetLastFromSystem(errno);
            break;
        }
    }
    return done;
}

std::ptrdiff_t read_some(int fd, char *bytes, std::size_t count) {
    for (;;) {
        ssize_t got = ::read(fd, bytes, count);
        if (got >= 0) return got;
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            wait_for(fd, POLLIN);
        } else if (errno != EINTR) {
            Error_SetLastFromSystem(errno);
            return -1;
        }
    }
}

}  // namespace kel::system

namespace kel::detail {

byte_channel::~byte_channel() = default;

namespace {

constexpr std::size_t largest_size = std::size_t{1} << 26;
// A trial takes in until this many bytes wait. Without a limit a fast writer would fill the memory of a
// reader that tries before every read; a trial that still needs more is helped by the next one.
constexpr std::size_t read_ahead_limit = std::size_t{4} * 65536;
constexpr std::size_t least_room = 4096;
// More than this is received where it is wanted, and not by way of the area.
constexpr std::size_t largest_copy = 16384;
// An area that grew beyond this is given back when it is not needed any more.
constexpr std::size_t kept_size = 8192;

}  // namespace

descriptor_buffer::descriptor_buffer(int fd, std::unique_ptr<byte_channel> channel, bool through,
                                     std::size_t first, std::size_t size)
    : m_link(std::make_shared<link>(link{this})),
      m_channel(std::move(channel)),
      m_first(first),
      m_size(size),
      m_in_wanted(first),
      m_fd(fd),
      m_through(through) {}

descriptor_buffer::~descriptor_buffer() {
    const system::uncancelled scope;
    flush_out();
    m_link->buffer = nullptr;
}

void descriptor_buffer::set_size(std::size_t bytes) noexcept {
    if (m_in || m_out) return;
    const bool grows = m_first < m_size;
    m_size = std::clamp(bytes, std::size_t{1}, largest_size);
    m_in_wanted = m_first = grows ? std::min(m_first, m_size) : m_size;
}

// Input ----------------------------------------------------------------------------------------

descriptor_buffer::int_type descriptor_buffer::underflow() {
    if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
    // An end that was met ahead of a reader is told once: a terminal goes on after its end, a pipe tells it
    // again.
    if (std::exchange(m_end_met, false)) return traits_type::eof();
    take_in_area();
    std::ptrdiff_t got = m_channel->receive(m_in.get(), m_in_size, true);
    if (got <= 0) return traits_type::eof();
    m_received += static_cast<std::uint64_t>(got);
    setg(m_in.get(), m_in.get(), m_in.get() + got);
    learn(static_cast<std::size_t>(got), m_in_size);
    return traits_type::to_int_type(*gptr());
}

// An empty get area of the size that is wanted: one that is there and empty tells the end.
void descriptor_buffer::take_in_area() {
    if (m_in_size == m_in_wanted) return;
    m_in.reset();
    setg(nullptr, nullptr, nullptr);
    m_in_size = 0;
    m_in = std::make_unique_for_overwrite<char[]>(m_in_wanted);
    m_in_size = m_in_wanted;
    setg(m_in.get(), m_in.get(), m_in.get());
}

// A read that filled all the room has probably left some; one that found little pays for no large area.
void descriptor_buffer::learn(std::size_t got, std::size_t room) noexcept {
    constexpr std::size_t growth = 4;
    if (got == room)
        m_in_wanted = std::min(growth * m_in_wanted, m_size);
    else if (m_in_wanted > kept_size && m_in_wanted > m_first && got < m_in_wanted / 8)
        m_in_wanted = m_first;
}

std::streamsize descriptor_buffer::xsgetn(char *to, std::streamsize count) {
    std::streamsize done = 0;
    while (done < count) {
        if (std::streamsize ready = std::min<std::streamsize>(egptr() - gptr(), count - done); ready > 0) {
            std::memcpy(to + done, gptr(), static_cast<std::size_t>(ready));
            setg(eback(), gptr() + ready, egptr());
            done += ready;
        } else if (auto wanted = static_cast<std::size_t>(count - done);
                   wanted >= std::min(m_in_wanted, largest_copy) && !m_end_met) {
            std::ptrdiff_t got = m_channel->receive(to + done, wanted, true);
            if (got <= 0) break;
            m_received += static_cast<std::uint64_t>(got);
            done += got;
            learn(static_cast<std::size_t>(got), wanted);
        } else if (traits_type::eq_int_type(underflow(), traits_type::eof())) {
            break;
        }
    }
    // Fewer bytes than asked do not tell the end, so the next who reads is told, without asking again.
    if (done > 0 && done < count) m_end_met = true;
    return done;
}

// Makes room behind the unread bytes. Moves them only when at least half as many were read since they
// were last moved, so that the moves cost a constant share of the reads.
void descriptor_buffer::make_room() {
    std::size_t begin = m_in ? static_cast<std::size_t>(gptr() - m_in.get()) : 0, unread = unread_count();
    if (m_in && m_in_size - begin - unread >= std::min(least_room, m_in_size)) return;
    if (m_in && unread <= 2 * begin) {
        std::memmove(m_in.get(), gptr(), unread);
    } else {
        std::size_t larger = std::max(2 * m_in_size, m_first);
        auto grown = std::make_unique_for_overwrite<char[]>(larger);
        if (unread > 0) std::memcpy(grown.get(), gptr(), unread);
        m_in = std::move(grown);
        m_in_size = larger;
    }
    setg(m_in.get(), m_in.get(), m_in.get() + unread);
}

void descriptor_buffer::take_in() {
    std::uint64_t consumed = m_received - unread_count();
    // Nothing was read since the last trial: it had too little, so this one may take more.
    bool again = consumed == std::exchange(m_consumed_at_trial, consumed);
    std::size_t enough = again ? unread_count() + read_ahead_limit : read_ahead_limit;
    while (!m_end_met && unread_count() < enough) {
        make_room();
        std::ptrdiff_t got =
            m_channel->receive(egptr(), static_cast<std::size_t>(m_in.get() + m_in_size - egptr()), false);
        if (got == byte_channel::nothing_yet) return;
        if (got > 0) {
            m_received += static_cast<std::uint64_t>(got);
            setg(eback(), gptr(), egptr() + got);
        } else {
            m_end_met = true;
        }
    }
}

// Output ---------------------------------------------------------------------------------------

// What waits, and more behind it, in one go. Answers how many bytes of `more` were taken, or whether all went
// out where there are no more.
std::size_t descriptor_buffer::send_all(std::string_view more) {
    auto waiting = static_cast<std::size_t>(pptr() - pbase());
    std::size_t size = static_cast<std::size_t>(epptr() - pbase());
    std::size_t sent = m_channel->send({pbase(), waiting}, more);
    if (sent < waiting) {
        std::memmove(m_out.get(), pbase() + sent, waiting - sent);
        setp(m_out.get(), m_out.get() + size);
        pbump(static_cast<int>(waiting - sent));
        return 0;
    }
    setp(m_out.get(), m_out.get() + size);
    return more.empty() ? 1 : sent - waiting;
}

void descriptor_buffer::grow_out(std::size_t needed) {
    auto waiting = static_cast<std::size_t>(pptr() - pbase());
    std::size_t size = std::max(static_cast<std::size_t>(epptr() - pbase()), m_first);
    while (size < needed)
        size = std::min(2 * size, m_size);
    auto grown = std::make_unique_for_overwrite<char[]>(size);
    if (waiting > 0) std::memcpy(grown.get(), pbase(), waiting);
    m_out = std::move(grown);
    setp(m_out.get(), m_out.get() + size);
    pbump(static_cast<int>(waiting));
}

std::streamsize descriptor_buffer::xsputn(const char *from, std::streamsize count) {
    if (count <= 0) return 0;
    auto bytes = static_cast<std::size_t>(count);
    if (m_through) return static_cast<std::streamsize>(m_channel->send({from, bytes}, {}));
    if (count > epptr() - pptr()) {
        std::size_t needed = static_cast<std::size_t>(pptr() - pbase()) + bytes;
        // What would fill the buffer goes out without a copy.
        if (needed >= m_size) return static_cast<std::streamsize>(send_all({from, bytes}));
        grow_out(needed);
    }
    std::memcpy(pptr(), from, bytes);
    pbump(static_cast<int>(count));
    return count;
}

descriptor_buffer::int_type descriptor_buffer::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof()))
        return flush_out() ? traits_type::not_eof(character) : traits_type::eof();
    char byte = traits_type::to_char_type(character);
    return xsputn(&byte, 1) == 1 ? character : traits_type::eof();
}

int descriptor_buffer::sync() {
    if (!flush_out()) return -1;
    if (auto size = static_cast<std::size_t>(epptr() - pbase()); size > kept_size && size > m_first) {
        m_out.reset();
        setp(nullptr, nullptr);
    }
    return 0;
}

// Events ---------------------------------------------------------------------------------------

bool buffer_event::IsReady() {
    if (!buffer()) return true;
    return m_interest == btkPollIn &&
           (buffer()->unread_count() > 0 || buffer()->end_met() || buffer()->channel().has_input_taken_in());
}

btkPollRequest buffer_event::GetPollRequest() {
    if (!buffer()) return {};
    return {buffer()->descriptor(), m_interest};
}

bool buffer_event::IsMet(unsigned got) {
    if (!(got & btkPollIn) || m_interest != btkPollIn || !buffer()) return got != 0;
    return buffer()->channel().has_input();
}

}  // namespace kel::detail
