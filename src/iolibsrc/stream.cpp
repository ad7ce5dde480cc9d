// The stream core: guards, blocking operations, copying and state. The typed operations are the hot path:
// a few tests that the processor predicts, then one virtual call into the serializer.
#include <algorithm>
#include <climits>

#include <kelstdmt/iolib_stream.h>

#include "iolibsrc/stream_area.h"

using kel::detail::stream_area;

ioStream::ioStream(ioSerializer *serializer, xstreambuf *buffer, bool canwrite, bool canread)
    : m_serializer(nullptr), m_buffer(buffer), m_blocking(nullptr), m_canread(canread), m_canwrite(canwrite) {
    if (buffer) m_blocking = buffer->GetStreamBuf();
    if (!m_blocking) kelhThrowNotInitialized();
    setSerializer(serializer);
}

// A derived stream has closed itself by now; of one that has not, the part that could close is gone.
ioStream::~ioStream() {
    m_open = false;
    ForgetErrors();
}

// Guards ---------------------------------------------------------------------------------------

inline void ioStream::StartInput() {
    GuardInput();
    m_active = true;
}
inline void ioStream::StartOutput() {
    GuardOutput();
    m_active = true;
}
inline void ioStream::StartTypedInput() {
    GuardInput();
    if (!kel::is_nil(m_itimeout)) [[unlikely]]
        Throw(ioUnsupportedFunction, "ITimeout != INFINITE");
    m_active = true;
}
inline void ioStream::StartTypedOutput() {
    GuardOutput();
    if (!kel::is_nil(m_otimeout)) [[unlikely]]
        Throw(ioUnsupportedFunction, "OTimeout != INFINITE");
    m_active = true;
}

// Reading --------------------------------------------------------------------------------------

int ioStream::ReadByte() {
    StartTypedInput();
    char value = 0;
    CheckTryCode(m_serializer->RdByte(value, m_blocking));
    return static_cast<signed char>(value);
}
int ioStream::ReadInt() {
    StartTypedInput();
    int value = 0;
    CheckTryCode(m_serializer->RdInt(value, m_blocking));
    return value;
}
xbool ioStream::ReadBool() {
    StartTypedInput();
    xbool value = 0;
    CheckTryCode(m_serializer->RdBool(value, m_blocking));
    return value;
}
double ioStream::ReadReal() {
    StartTypedInput();
    double value = 0;
    CheckTryCode(m_serializer->RdReal(value, m_blocking));
    return value;
}
xstring ioStream::ReadString(const char *delimiters) {
    StartTypedInput();
    xstring value;
    CheckTryCode(m_serializer->RdString(value, m_blocking, delimiters));
    return value;
}
unsigned ioStream::ReadBytes(void *buffer, unsigned count) {
    StartInput();
    if (count == 0) return 0;
    unsigned got = m_serializer->RdBytes(buffer, count, m_blocking);
    if (got == 0) CheckTryCode(ioEndOfFile);
    return got;
}

// Writing --------------------------------------------------------------------------------------

void ioStream::WriteByte(int value) {
    StartTypedOutput();
    CheckTryCode(m_serializer->WrByte(static_cast<char>(value), m_blocking));
}
void ioStream::WriteInt(int value) {
    StartTypedOutput();
    CheckTryCode(m_serializer->WrInt(value, m_blocking));
}
void ioStream::WriteBool(xbool value) {
    StartTypedOutput();
    CheckTryCode(m_serializer->WrBool(value, m_blocking));
}
void ioStream::WriteReal(double value) {
    StartTypedOutput();
    CheckTryCode(m_serializer->WrReal(value, m_blocking));
}
void ioStream::WriteString(const char *text) {
    StartTypedOutput();
    CheckTryCode(m_serializer->WrString(text, m_blocking));
}
void ioStream::WriteBytes(const void *buffer, unsigned count) {
    StartOutput();
    if (count == 0) return;
    // The slot's type is older than const; nothing writes to the bytes.
    CheckTryCode(m_serializer->WrBytes(const_cast<void *>(buffer), count, m_blocking));
}

// Flushing and closing -------------------------------------------------------------------------

ioEvent *ioStream::Flush(bool blocking) {
    if (!blocking) Throw(ioUnsupportedFunction, "non-blocking Flush");
    if (m_blocking && m_blocking->pubsync() == -1 && m_canwrite) SetState(Bad);
    return nullptr;
}

void ioStream::Close() {
    if (!m_open) return;
    // What OnClose released is not touched again, even where a stream of a user's own throws from it.
    struct closed {
        ioStream &stream;
        ~closed() {
            stream.m_open = false;
            stream.m_blocking = nullptr;
            stream.m_buffer = nullptr;
        }
    } at_end{*this};
    OnClose();
}

// Copying --------------------------------------------------------------------------------------

void ioStream::ReadStream(ioStream *source) {
    CopyStream(this, source);
}
void ioStream::WriteStream(ioStream *target) {
    CopyStream(target, this);
}

// Bytes go from the source's buffer straight into the target, as they arrive: a slow source's bytes are
// never held back until a block of ours is full.
void CopyStream(ioStream *target, ioStream *source) {
    constexpr std::size_t largest = std::size_t{1} << 20;
    if (!kel::is_object(target) || !kel::is_object(source)) kelhThrowNotInitialized();
    source->GuardInput();
    target->GuardOutput();
    if (source->m_serializer != target->m_serializer) source->Throw(ioIncompatibleFormat);
    if (source == target) source->Throw(ioImproperFunction, "CopyStream");
    source->SetActive();
    target->SetActive();
    std::streambuf &from = *source->m_blocking, &to = *target->m_blocking;
    for (;;) {
        bool more = from.sgetc() != std::streambuf::traits_type::eof();
        const char *unread = stream_area::unread(from);
        std::streamsize count, written;
        if (std::size_t size = stream_area::unread_count(from); more && size > 0) {
            count = static_cast<std::streamsize>(std::min(size, largest));
            written = to.sputn(unread, count);
            stream_area::read_up_to(from, unread + written);
        } else if (!more && unread) {
            return;
        } else {
            char block[4096];  // a source without a buffer of its own
            count = from.sgetn(block, sizeof block);
            if (count <= 0) return;
            written = to.sputn(block, count);
        }
        if (written < count) target->ThrowState(ioStream::Bad);
    }
}

// Sizes ----------------------------------------------------------------------------------------

namespace {

int to_int(unsigned size) {
    return static_cast<int>(std::min<unsigned>(size, INT_MAX));
}

}  // namespace

int ioStream::SizeOfByte(int value) {
    CheckOpen();
    return to_int(m_serializer->SzByte(static_cast<char>(value)));
}
int ioStream::SizeOf(int value) {
    CheckOpen();
    return to_int(m_serializer->SzInt(value));
}
int ioStream::SizeOf(bool value) {
    return SizeOf(static_cast<xbool>(value));
}
int ioStream::SizeOf(xbool value) {
    CheckOpen();
    return to_int(m_serializer->SzBool(value));
}
int ioStream::SizeOf(double value) {
    CheckOpen();
    return to_int(m_serializer->SzReal(value));
}
int ioStream::SizeOf(const char *text) {
    CheckOpen();
    return to_int(m_serializer->SzString(text));
}

// State ----------------------------------------------------------------------------------------

void ioStream::setSerializer(ioSerializer *serializer) {
    CheckOpen();
    if (m_active) Throw(ioImproperFunction);
    if (!kel::is_object(serializer)) kelhThrowNotInitialized();
    m_serializer = serializer;
    if (serializer->getIsBinary())
        SetBinaryMode();
    else
        SetTextMode();
}

void ioStream::setITimeout(double seconds) {
    CheckOpen();
    m_itimeout = seconds;
    if (!kel::is_nil(seconds)) m_itimeval.init(seconds);
}
void ioStream::setOTimeout(double seconds) {
    CheckOpen();
    m_otimeout = seconds;
    if (!kel::is_nil(seconds)) m_otimeval.init(seconds);
}

void ioStream::setIsFail(bool value) {
    CheckOpen();
    m_state = value ? m_state | Fail : 0;
}
void ioStream::setIsBad(bool value) {
    CheckOpen();
    m_state = value ? m_state | Bad : 0;
}

bool ioStream::getIsBuffered() {
    CheckOpen();
    Throw(ioUnsupportedFunction, "getIsBuffered");
}
int ioStream::getBufferSize() {
    CheckOpen();
    Throw(ioUnsupportedFunction, "getBufferSize");
}
void ioStream::setBufferSize(int) {
    CheckOpen();
    Throw(ioUnsupportedFunction, "setBufferSize");
}
void ioStream::Ignore() {
    GuardInput();
    Throw(ioUnsupportedFunction, "Ignore");
}
bool ioStream::getWouldDataLost() {
    GuardInput();
    Throw(ioUnsupportedFunction, "getWouldDataLost");
}

int ioStream::GetInheritHandle() {
    return -1;
}
void ioStream::SetTextMode() {}
void ioStream::SetBinaryMode() {}
