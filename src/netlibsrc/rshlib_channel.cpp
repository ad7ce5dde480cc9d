#include "netlibsrc/rshlib_channel.h"

#include <algorithm>

#include <kelstdmt/kel.h>

#include "runtime/relay.h"
#include "runtime/trace.h"

using kel::system::io_failed;
using kel::system::io_would_wait;
using kel::system::trace, kel::system::trace_area;

namespace kel::detail {

namespace {

constexpr std::size_t usual_pipe = 65536, largest_piece = 262144;
// More than this is not copied to be gathered.
constexpr std::size_t large_piece = 16384;
// What a descriptor that has room takes without a wait.
constexpr std::size_t sure_piece = 4096;

// What a stream answers; what it throws is its failure.
template <class Result, class Action>
Result guarded(Result failed, Action action) {
    try {
        return action();
    } catch (xthrowable *thrown) {
        const kel::caught error(thrown);
        return failed;
    }
}

bool is_usable(const ioStream &stream) {
    return stream.getIsOpen() && stream.getIsGood();
}

// The condition of a stream's event; what is never known to wait is always signalled.
class stream_event : public btkBaseEvent {
public:
    explicit stream_event(ioEvent *owned) noexcept : m_event(owned) {}

    bool IsReady() override { return !base() || base()->IsReady(); }
    btkPollRequest GetPollRequest() override { return base() ? base()->GetPollRequest() : btkPollRequest{}; }
    bool Confirm(unsigned got) override { return base() ? base()->Confirm(got) : got != 0; }
    bool IsMet(unsigned got) override { return base() ? base()->IsMet(got) : got != 0; }

private:
    btkBaseEvent *base() const { return m_event ? m_event->GetBaseEvent() : nullptr; }

    std::unique_ptr<ioEvent> m_event;
};

ioEvent *input_of(ioStream &stream) {
    return guarded<ioEvent *>(nullptr, [&] { return stream.InputEvent(); });
}
ioEvent *output_of(ioStream &stream) {
    return guarded<ioEvent *>(nullptr, [&] { return stream.OutputEvent(); });
}

}  // namespace

// Sources --------------------------------------------------------------------------------------

relay_source::~relay_source() = default;

pipe_source::pipe_source(int fd) : relay_source(new btkSelectEvent(fd, 0)), m_fd(fd) {
    kel::system::set_nonblocking(fd);
}

std::ptrdiff_t pipe_source::read(char *to, std::size_t room) {
    const std::ptrdiff_t got = kel::system::read_now(m_fd, to, room);
    if (got >= static_cast<std::ptrdiff_t>(usual_pipe) && !m_enlarged) {
        kel::system::enlarge_pipe(m_fd);
        m_enlarged = true;
    }
    return got == io_failed ? 0 : got;
}

stream_source::stream_source(ioStream &stream)
    : relay_source(new stream_event(input_of(stream))), m_stream(stream) {}

std::size_t stream_source::peek() {
    return is_usable(m_stream) ? m_stream.PeekNBytes() : 0;
}

std::ptrdiff_t stream_source::read(char *to, std::size_t room) {
    return guarded<std::ptrdiff_t>(0, [&]() -> std::ptrdiff_t {
        std::size_t count = peek();
        // Another reader may have been faster: it is the end only where the stream knows so, or still says
        // that there is something when there is nothing.
        if (count == 0 && !event()->GetBaseEvent()->IsReady()) {
            if (is_usable(m_stream) && !event()->IsSignaled()) return io_would_wait;
            count = peek();
        }
        return count == 0 ? 0 : m_stream.ReadBytes(to, static_cast<unsigned>(std::min(count, room)));
    });
}

// A writer of small pieces that has just been woken up has the next one ready soon: what is there by now goes
// with the first.
bool source_forwarder::forward(relay_source &source, int tag, relay_wire &wire) {
    if (wire.unsent() > 0) return true;
    char *place = wire.reserve(m_piece);
    std::size_t count = 0;
    std::ptrdiff_t got = 1;
    while (got > 0 && count < m_piece) {
        got = source.read(place + count, m_piece - count);
        if (got > 0) count += static_cast<std::size_t>(got);
    }
    if (count > 0) {
        wire.put_counted(tag, count);
        wire.send();
    }
    if (count == m_piece) m_piece = std::min(2 * m_piece, largest_piece);
    if (got == 0) trace(trace_area::relay, channel_name(tag), ": its source has ended");
    return got != 0;
}

// Destinations ---------------------------------------------------------------------------------

relay_destination::~relay_destination() = default;

std::size_t relay_destination::write_some(std::string_view bytes) {
    if (m_dead || bytes.empty()) return bytes.size();
    const std::ptrdiff_t taken = write(bytes);
    m_dead = taken == io_failed;
    if (m_dead) trace(trace_area::relay, channel_name(m_tag), ": nobody reads it any more");
    if (taken > 0) written();
    const std::size_t done =
        m_dead ? bytes.size() : static_cast<std::size_t>(std::max<std::ptrdiff_t>(taken, 0));
    m_waits = done < bytes.size();
    return done;
}

// Small pieces are gathered until they are flushed together.
void relay_destination::take(std::string_view bytes) {
    if (m_pending.is_empty() && bytes.size() >= large_piece) bytes.remove_prefix(write_some(bytes));
    if (!m_dead) m_pending.append(bytes);
}

void relay_destination::flush() {
    if (!m_waits && !m_pending.is_empty()) m_pending.drop(write_some(m_pending.bytes()));
}

void relay_destination::flush_into_room() {
    m_waits = false;
    flush();
}

int relay_destination::news() noexcept {
    if (m_holds ? pending() >= low : pending() <= high) return 0;
    m_holds = !m_holds;
    trace(trace_area::relay, channel_name(m_tag),
          m_holds ? ": the sender is to hold it back, kept are " : ": the sender is to go on, kept are ",
          pending());
    return m_tag + (m_holds ? tag_hold : tag_go_on);
}

pipe_destination::pipe_destination(int tag, int fd)
    : relay_destination(tag, new btkSelectEvent(fd, 1)), m_fd(fd) {
    kel::system::set_nonblocking(fd);
}

std::ptrdiff_t pipe_destination::write(std::string_view bytes) {
    const std::ptrdiff_t taken = kel::system::write_now(m_fd, bytes.data(), bytes.size());
    if (taken < static_cast<std::ptrdiff_t>(bytes.size()) && taken != io_failed && !m_enlarged) {
        kel::system::enlarge_pipe(m_fd);
        m_enlarged = true;
    }
    return taken;
}

stream_destination::stream_destination(int tag, ioStream &stream)
    : relay_destination(tag, new stream_event(output_of(stream))), m_stream(stream) {}

std::ptrdiff_t stream_destination::write(std::string_view bytes) {
    return guarded<std::ptrdiff_t>(io_failed, [&]() -> std::ptrdiff_t {
        std::size_t done = 0;
        const bool may_wait = !event()->GetBaseEvent()->IsReady();
        while (done < bytes.size()) {
            if (may_wait && !event()->IsSignaled())
                return done > 0 ? static_cast<std::ptrdiff_t>(done) : io_would_wait;
            if (!is_usable(m_stream)) return io_failed;
            const std::size_t count =
                may_wait ? std::min(bytes.size() - done, sure_piece) : bytes.size() - done;
            m_stream.WriteBytes(bytes.data() + done, static_cast<unsigned>(count));
            if (may_wait) m_stream.Flush();
            done += count;
        }
        return static_cast<std::ptrdiff_t>(done);
    });
}

void stream_destination::written() {
    guarded(false, [&] { return m_stream.Flush() == nullptr; });
}

}  // namespace kel::detail
