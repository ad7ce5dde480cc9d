// Trials and events: how a caller finds out, without waiting, what a stream could do now. A trial decodes
// from the bytes that the stream's buffer can show, so it needs nothing from the encodings.
#include <algorithm>
#include <climits>
#include <memory>

#include <kelstdmt/iolib_stream.h>

#include "iolibsrc/stream_area.h"

using kel::detail::stream_area;

namespace {

template <std::streambuf *(xstreambuf::*Begin)(), void (xstreambuf::*End)()>
class trial {
public:
    explicit trial(xstreambuf &buffer) : m_buffer(buffer), m_bytes((buffer.*Begin)()) {}
    ~trial() {
        if (m_bytes) (m_buffer.*End)();
    }
    trial(const trial &) = delete;
    trial &operator=(const trial &) = delete;

    std::streambuf *bytes() const { return m_bytes; }
    // A value that waits for more waits in vain at the end of the data.
    ioTryCode settled(ioTryCode code) const {
        return code == ioWouldBlock && m_buffer.IsEofReached() ? ioEndOfFile : code;
    }

private:
    xstreambuf &m_buffer;
    std::streambuf *m_bytes;
};

using input_trial = trial<&xstreambuf::GetTryIBuf, &xstreambuf::FreeTryIBuf>;
using output_trial = trial<&xstreambuf::GetTryOBuf, &xstreambuf::FreeTryOBuf>;

}  // namespace

// Input ----------------------------------------------------------------------------------------

template <class Read>
ioTryCode ioStream::TryRead(Read read) {
    GuardInput();
    input_trial trial(*m_buffer);
    if (!trial.bytes()) return ioNotSupported;
    m_active = true;
    return trial.settled(read(trial.bytes()));
}

ioTryCode ioStream::TryReadByte() {
    char value = 0;
    return TryRead([&](std::streambuf *from) { return m_serializer->RdByte(value, from); });
}
ioTryCode ioStream::TryReadInt() {
    int value = 0;
    return TryRead([&](std::streambuf *from) { return m_serializer->RdInt(value, from); });
}
ioTryCode ioStream::TryReadBool() {
    xbool value = 0;
    return TryRead([&](std::streambuf *from) { return m_serializer->RdBool(value, from); });
}
ioTryCode ioStream::TryReadReal() {
    double value = 0;
    return TryRead([&](std::streambuf *from) { return m_serializer->RdReal(value, from); });
}
ioTryCode ioStream::TryReadString(const char *delimiters) {
    xstring value;
    return TryRead([&](std::streambuf *from) {
        ioTryCode code = m_serializer->RdString(value, from, delimiters);
        // Text ends at its delimiter, which stays unread, or at the end of the data; a text that ends where
        // the bytes end may go on with the next that arrive.
        bool open = code == ioSuccess && !m_serializer->getIsBinary() &&
                    from->sgetc() == std::streambuf::traits_type::eof();
        return open && !m_buffer->IsEofReached() ? ioWouldBlock : code;
    });
}

unsigned ioStream::PeekNBytes() {
    GuardInput();
    m_active = true;
    input_trial trial(*m_buffer);
    const std::streambuf &bytes = trial.bytes() ? *trial.bytes() : *m_blocking;
    return static_cast<unsigned>(std::min<std::size_t>(stream_area::unread_count(bytes), UINT_MAX));
}

// Output ---------------------------------------------------------------------------------------

template <class Write>
ioTryCode ioStream::TryWrite(Write write) {
    GuardOutput();
    output_trial trial(*m_buffer);
    if (!trial.bytes()) return ioNotSupported;
    m_active = true;
    return trial.settled(write(trial.bytes()));
}

ioTryCode ioStream::TryWriteByte(int value) {
    return TryWrite([&](std::streambuf *to) { return m_serializer->WrByte(static_cast<char>(value), to); });
}
ioTryCode ioStream::TryWriteInt(int value) {
    return TryWrite([&](std::streambuf *to) { return m_serializer->WrInt(value, to); });
}
ioTryCode ioStream::TryWriteBool(xbool value) {
    return TryWrite([&](std::streambuf *to) { return m_serializer->WrBool(value, to); });
}
ioTryCode ioStream::TryWriteReal(double value) {
    return TryWrite([&](std::streambuf *to) { return m_serializer->WrReal(value, to); });
}
ioTryCode ioStream::TryWriteString(const char *text) {
    return TryWrite([&](std::streambuf *to) { return m_serializer->WrString(text, to); });
}

// Events ---------------------------------------------------------------------------------------

ioEvent::ioEvent(ioStream *stream, ioEventType type, btkBaseEvent *event)
    : evtEvent(event), m_stream(stream), m_type(type) {}

ioEvent::~ioEvent() = default;

ioEvent *ioStream::CreateEvent(btkBaseEvent *event, ioEventType type) {
    if (!event) return nullptr;
    std::unique_ptr<btkBaseEvent> owner(event);
    return kel::construct_with<ioEvent>(
        [&](void *at) { return ::new (at) ioEvent(this, type, owner.release()); });
}

ioEvent *ioStream::InputEvent() {
    GuardInput();
    return CreateEvent(m_buffer->GetInputEvent(), ioInputPending);
}
ioEvent *ioStream::OutputEvent() {
    GuardOutput();
    return CreateEvent(m_buffer->GetOutputEvent(), ioOutputPending);
}
