// Reading and writing descriptors, and the std::streambuf over one. It has a get and a put area, each
// taken on first use, so that one class serves pipe ends, the console and connections. What differs between
// them is the channel underneath.
#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <streambuf>
#include <string_view>

#include <kelstdmt/vumrt_event.h>

namespace kel::system {

// What is left of two texts after so many bytes of them, as one write takes it.
struct two_parts {
    two_parts(std::string_view first, std::string_view second, std::size_t done) noexcept;
    iovec parts[2];
    int count = 0;
};

// All of the bytes, those of the second text behind those of the first, also through signals and on
// descriptors that do not block by themselves. Answers how many were taken; fewer than asked is a failure,
// told by the last error. Never raises SIGPIPE.
std::size_t write_all(int fd, std::string_view first, std::string_view second);
inline std::size_t write_all(int fd, const char *bytes, std::size_t count) {
    return write_all(fd, {bytes, count}, {});
}

// At least one byte; 0 at the end, -1 on failure with the last error set.
std::ptrdiff_t read_some(int fd, char *bytes, std::size_t count);

}  // namespace kel::system

namespace kel::detail {

class byte_channel {
public:
    static constexpr std::ptrdiff_t failed = -1, nothing_yet = -2;

    byte_channel() = default;
    virtual ~byte_channel();
    byte_channel(const byte_channel &) = delete;
    byte_channel &operator=(const byte_channel &) = delete;

    // At least one byte, 0 at the end, `failed` with the last error set, and `nothing_yet` when it would have
    // to wait and must not.
    virtual std::ptrdiff_t receive(char *to, std::size_t room, bool wait) = 0;
    // As write_all.
    virtual std::size_t send(std::string_view first, std::string_view second) = 0;
    // Whether a read would find something, asked when the system says so; and without the system.
    virtual bool has_input() { return true; }
    virtual bool has_input_taken_in() const noexcept { return false; }
};

class descriptor_buffer : public std::streambuf {
public:
    // What an event keeps of a buffer: null once the buffer is gone.
    struct link {
        descriptor_buffer *buffer;
    };

    // Areas of `first` bytes that grow up to `size` as they are needed.
    descriptor_buffer(int fd, std::unique_ptr<byte_channel> channel, bool through, std::size_t first,
                      std::size_t size);
    ~descriptor_buffer() override;

    int descriptor() const noexcept { return m_fd; }
    byte_channel &channel() const noexcept { return *m_channel; }
    const std::shared_ptr<link> &get_link() const noexcept { return m_link; }

    // Takes in what the system has without blocking.
    void take_in();
    const char *unread() const noexcept { return gptr(); }
    std::size_t unread_count() const noexcept { return static_cast<std::size_t>(egptr() - gptr()); }
    bool end_met() const noexcept { return m_end_met; }

    std::size_t size() const noexcept { return m_size; }
    void set_size(std::size_t bytes) noexcept;

protected:
    int_type underflow() override;
    int_type overflow(int_type character) override;
    std::streamsize xsgetn(char *to, std::streamsize count) override;
    std::streamsize xsputn(const char *from, std::streamsize count) override;
    int sync() override;

private:
    void take_in_area();
    void learn(std::size_t got, std::size_t room) noexcept;
    void make_room();
    void grow_out(std::size_t needed);
    std::size_t send_all(std::string_view more);
    bool flush_out() { return pptr() == pbase() || send_all({}) > 0; }

    std::shared_ptr<link> m_link;
    std::unique_ptr<byte_channel> m_channel;
    std::unique_ptr<char[]> m_in, m_out;
    std::size_t m_first, m_size;  // of each area: to start with, and at most
    std::size_t m_in_wanted;      // of the get area when it is taken the next time
    std::size_t m_in_size = 0;    // of the get area, which trials may have grown
    std::uint64_t m_received = 0;
    std::uint64_t m_consumed_at_trial = UINT64_MAX;
    int m_fd;
    bool m_through;
    bool m_end_met = false;  // not yet told to a reader
};

// Signalled when the buffer has input or room. Keeps the little that a buffer shares, so that it may outlive
// the buffer: from then on it is signalled, and who reads finds the stream closed.
class buffer_event : public btkBaseEvent {
public:
    buffer_event(const descriptor_buffer &buffer, btkPollInterest interest)
        : m_link(buffer.get_link()), m_interest(interest) {}

    bool IsReady() override;
    btkPollRequest GetPollRequest() override;
    bool IsMet(unsigned got) override;

protected:
    descriptor_buffer *buffer() const noexcept { return m_link->buffer; }

private:
    std::shared_ptr<descriptor_buffer::link> m_link;
    btkPollInterest m_interest;
};

}  // namespace kel::detail
