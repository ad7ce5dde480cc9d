// The ends of a channel that a relay has on its own side: where bytes come from, and where they go. Neither
// makes the relay wait.
//
// A destination that takes nothing keeps what is for it. While it keeps much, its news tell the sender to
// hold the channel back, and to go on; messages behind the bytes can be read meanwhile.
#pragma once

#include <cstddef>
#include <string_view>

#include <kelstdmt/iolib.h>

#include "netlibsrc/rshlib_wire.h"

namespace kel::detail {

class relay_source {
public:
    explicit relay_source(btkBaseEvent *owned) noexcept : m_event(owned) {}
    virtual ~relay_source();
    relay_source(const relay_source &) = delete;
    relay_source &operator=(const relay_source &) = delete;

    // Something can be read, or the end was met.
    btkEvent *event() noexcept { return &m_event; }
    // How many bytes there were; 0 at the end, io_would_wait when there are none yet.
    virtual std::ptrdiff_t read(char *to, std::size_t room) = 0;

private:
    btkEvent m_event;
};

// A pipe's read end that stays its owner's.
class pipe_source : public relay_source {
public:
    explicit pipe_source(int fd);
    std::ptrdiff_t read(char *to, std::size_t room) override;

private:
    int m_fd;
    bool m_enlarged = false;
};

// Any stream.
class stream_source : public relay_source {
public:
    explicit stream_source(ioStream &stream);
    std::ptrdiff_t read(char *to, std::size_t room) override;

private:
    std::size_t peek();

    ioStream &m_stream;
};

// Passes on what a source has now as a counted message, when all before it is sent. False at the end of the
// source.
class source_forwarder {
public:
    bool forward(relay_source &source, int tag, relay_wire &wire);

private:
    std::size_t m_piece = 16384;  // at most so many bytes at a time; grows with what there is
};

class relay_destination {
public:
    explicit relay_destination(int tag, btkBaseEvent *owned) noexcept : m_tag(tag), m_event(owned) {}
    virtual ~relay_destination();
    relay_destination(const relay_destination &) = delete;
    relay_destination &operator=(const relay_destination &) = delete;

    void take(std::string_view bytes);  // dropped when nobody reads them any more; followed by a flush
    void flush();                       // what it takes now of what is kept, unless it waits for room
    void flush_into_room();             // when there is some
    std::size_t pending() const noexcept { return m_pending.size(); }
    bool is_full() const noexcept { return pending() > most_pending; }
    bool is_dead() const noexcept { return m_dead; }
    // There is room for what is kept; awaited while it waits for that.
    bool waits() const noexcept { return m_waits; }
    btkEvent *event() noexcept { return &m_event; }
    // The int that the sender is to be told; 0 for none.
    int news() noexcept;

    // Of a sender that does not hold back, no more is taken in.
    static constexpr std::size_t most_pending = std::size_t{16} << 20;

protected:
    // How many of the bytes it took without waiting; io_failed when it will never take any again.
    virtual std::ptrdiff_t write(std::string_view bytes) = 0;
    virtual void written() {}  // what was taken is to reach its place

private:
    static constexpr std::size_t high = 262144, low = 65536;

    std::size_t write_some(std::string_view bytes);

    int m_tag;
    btkEvent m_event;
    byte_queue m_pending;
    bool m_dead = false, m_waits = false, m_holds = false;
};

// A pipe's write end that stays its owner's.
class pipe_destination : public relay_destination {
public:
    pipe_destination(int tag, int fd);

protected:
    std::ptrdiff_t write(std::string_view bytes) override;

private:
    int m_fd;
    bool m_enlarged = false;
};

// Any stream.
class stream_destination : public relay_destination {
public:
    stream_destination(int tag, ioStream &stream);

protected:
    std::ptrdiff_t write(std::string_view bytes) override;
    void written() override;

private:
    ioStream &m_stream;
};

}  // namespace kel::detail
