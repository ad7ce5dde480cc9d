// Pipes and the buffers over descriptors.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include <kelstdmt/vumrt_stream.h>

#include "runtime/owned_descriptor.h"
#include "runtime/posix/descriptor.h"
#include "runtime/posix/through_signals.h"

using kel::detail::descriptor_buffer;

// Ends -----------------------------------------------------------------------------------------

void btkPipeEnd::Close() noexcept {
    kel::system::owned_descriptor{Release()};
}

bool btkAnonymousPipe::Create(btkOutputPipe &output, btkInputPipe &input) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        Error_SetLastFromSystem(errno);
        return false;
    }
    input = btkInputPipe(ends[0]);
    output = btkOutputPipe(ends[1]);
    return true;
}

// Buffers --------------------------------------------------------------------------------------

namespace {

constexpr std::size_t usual_size = 65536;
constexpr std::size_t small_size = 256;

class plain_channel : public kel::detail::byte_channel {
public:
    explicit plain_channel(int fd) noexcept : m_fd(fd) {}

    std::ptrdiff_t receive(char *to, std::size_t room, bool wait) override {
        if (wait) return kel::system::read_some(m_fd, to, room);
        pollfd request{m_fd, POLLIN, 0};
        const int told = kel::system::through_signals([&] { return ::poll(&request, 1, 0); });
        if (told <= 0) return nothing_yet;
        const ssize_t got = kel::system::through_signals([&] { return ::read(m_fd, to, room); });
        if (got >= 0) return got;
        if (errno == EAGAIN || errno == EWOULDBLOCK) return nothing_yet;
        Error_SetLastFromSystem(errno);
        return failed;
    }
    std::size_t send(std::string_view first, std::string_view second) override {
        return kel::system::write_all(m_fd, first, second);
    }

private:
    int m_fd;
};

}  // namespace

xdescriptorbuf::xdescriptorbuf(int fd, int sides, bool through)
    : m_buffer(std::make_unique<descriptor_buffer>(fd, std::make_unique<plain_channel>(fd), through,
                                                   usual_size, usual_size)),
      m_sides(sides) {
    InitStreamBuf(m_buffer.get());
}
xdescriptorbuf::xdescriptorbuf(int fd, std::unique_ptr<kel::detail::byte_channel> channel)
    : m_buffer(std::make_unique<descriptor_buffer>(fd, std::move(channel), false, small_size, usual_size)),
      m_sides(Input | Output) {
    InitStreamBuf(m_buffer.get());
}
xdescriptorbuf::~xdescriptorbuf() = default;

void xdescriptorbuf::Finish() noexcept {
    m_buffer.reset();
}

int xdescriptorbuf::GetHandle() const noexcept {
    return m_buffer->descriptor();
}
btkBaseEvent *xdescriptorbuf::GetInputEvent() {
    return m_sides & Input ? new kel::detail::buffer_event(*m_buffer, btkPollIn) : nullptr;
}
btkBaseEvent *xdescriptorbuf::GetOutputEvent() {
    return m_sides & Output ? new kel::detail::buffer_event(*m_buffer, btkPollOut) : nullptr;
}
int xdescriptorbuf::GetBufSize() {
    return static_cast<int>(m_buffer->size());
}
int xdescriptorbuf::SetBufSize(int bytes) {
    if (bytes > 0) m_buffer->set_size(static_cast<std::size_t>(bytes));
    return GetBufSize();
}

std::streambuf *xdescriptorbuf::OnGetTryIBuf() {
    if (!(m_sides & Input)) return nullptr;
    m_buffer->take_in();
    if (m_buffer->end_met()) SetEofReached();
    m_try.TakeBuf(m_buffer->unread(), m_buffer->unread_count());
    return &m_try;
}
void xdescriptorbuf::OnFreeTryIBuf() {
    m_try.FreeBuf();
}

// Kinds ----------------------------------------------------------------------------------------

xipipebuf::xipipebuf(int fd) : xdescriptorbuf(fd, Input, false), m_own(fd), m_end(&m_own) {}
xipipebuf::xipipebuf(btkInputPipe &end) : xdescriptorbuf(end.GetHandle(), Input, false), m_end(&end) {}
xipipebuf::~xipipebuf() {
    Finish();
    m_end->Close();
}

xopipebuf::xopipebuf(int fd) : xdescriptorbuf(fd, Output, false), m_own(fd), m_end(&m_own) {}
xopipebuf::xopipebuf(btkOutputPipe &end) : xdescriptorbuf(end.GetHandle(), Output, false), m_end(&end) {}
xopipebuf::~xopipebuf() {
    Finish();
    m_end->Close();
}

xistdbuf::xistdbuf() : xdescriptorbuf(STDIN_FILENO, Input, false) {}

xostdbuf::xostdbuf(int kind)
    : xdescriptorbuf(kind == 0 ? STDOUT_FILENO : STDERR_FILENO, Output,
                     kind != 0 || ::isatty(STDOUT_FILENO)) {}
