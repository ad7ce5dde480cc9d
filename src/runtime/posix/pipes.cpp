// Pipes, the buffers over descriptors and their events.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include <kelstdmt/vumrt_stream.h>

#include "runtime/posix/descriptor.h"

using kel::detail::descriptor_buffer;

// Ends -----------------------------------------------------------------------------------------

void btkPipeEnd::Close() noexcept {
    if (m_fd >= 0) ::close(Release());
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

// Events ---------------------------------------------------------------------------------------

namespace {

// Keeps the little that a buffer shares, so that it may outlive the buffer: from then on it is signalled,
// and who reads finds the stream closed.
class buffer_event : public btkBaseEvent {
public:
    buffer_event(const descriptor_buffer &buffer, btkPollInterest interest)
        : m_link(buffer.get_link()), m_interest(interest) {}

    bool IsReady() override {
        const descriptor_buffer *buffer = m_link->buffer;
        return !buffer || (m_interest == btkPollIn && (buffer->unread_count() > 0 || buffer->end_met()));
    }
    btkPollRequest GetPollRequest() override {
        if (!m_link->buffer) return {};
        return {m_link->buffer->descriptor(), m_interest};
    }

private:
    std::shared_ptr<descriptor_buffer::link> m_link;
    btkPollInterest m_interest;
};

}  // namespace

// Buffers --------------------------------------------------------------------------------------

xdescriptorbuf::xdescriptorbuf(int fd, int sides, bool through)
    : m_buffer(std::make_unique<descriptor_buffer>(fd, through)), m_sides(sides) {
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
    return m_sides & Input ? new buffer_event(*m_buffer, btkPollIn) : nullptr;
}
btkBaseEvent *xdescriptorbuf::GetOutputEvent() {
    return m_sides & Output ? new buffer_event(*m_buffer, btkPollOut) : nullptr;
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
