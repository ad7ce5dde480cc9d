// Reading and writing descriptors, and the std::streambuf over one. It has a get and a put area, each
// taken on first use, so that one class serves pipe ends, the console and connections.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <streambuf>

namespace kel::system {

// All of the bytes, also through signals and on descriptors that do not block by themselves. Answers how
// many were taken; fewer than asked is a failure, told by the last error. Never raises SIGPIPE.
std::size_t write_all(int fd, const char *bytes, std::size_t count) noexcept;

// At least one byte; 0 at the end, -1 on failure with the last error set.
std::ptrdiff_t read_some(int fd, char *bytes, std::size_t count) noexcept;

}  // namespace kel::system

namespace kel::detail {

class descriptor_buffer : public std::streambuf {
public:
    // What an event keeps of a buffer: null once the buffer is gone.
    struct link {
        descriptor_buffer *buffer;
    };

    descriptor_buffer(int fd, bool through);
    ~descriptor_buffer() override;

    int descriptor() const noexcept { return m_fd; }
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
    void make_room();
    std::size_t to_system(const char *bytes, std::size_t count);
    bool flush_out();

    std::shared_ptr<link> m_link;
    std::unique_ptr<char[]> m_in, m_out;
    std::size_t m_size;         // of each area, to start with
    std::size_t m_in_size = 0;  // of the get area, which trials may have grown
    std::uint64_t m_received = 0;
    std::uint64_t m_consumed_at_trial = UINT64_MAX;
    int m_fd;
    bool m_through;
    bool m_end_met = false;  // not yet told to a reader
};

}  // namespace kel::detail
