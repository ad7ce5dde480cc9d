// The stream error. Its message tells what is the matter with the stream now, so an error knows its
// stream, and a stream the errors that are still alive: when it dies, they keep the state that they threw
// with. The lists are locked, because an error may have been handed to another thread, which deletes it.
#include <string>
#include <utility>

#include <kelstdmt/iolib_stream.h>

namespace {

MT_LIBRARY_GUARD(errors_guard);

}  // namespace

ioXStream::ioXStream(ioStream *stream, ioError error, const char *function)
    : m_stream(stream),
      m_error(error),
      m_function(function ? function : ""),
      m_wasopen(stream->m_open),
      m_state(stream->m_state) {
    MT_LIBRARY_GUARD_USE(errors_guard);
    m_next = std::exchange(stream->m_errors, this);
    m_here = &stream->m_errors;
    if (m_next) m_next->m_here = &m_next;
}

ioXStream::~ioXStream() {
    MT_LIBRARY_GUARD_USE(errors_guard);
    if (!m_stream) return;
    if (m_next) m_next->m_here = m_here;
    *m_here = m_next;
}

void ioStream::ForgetErrors() noexcept {
    MT_LIBRARY_GUARD_USE(errors_guard);
    for (ioXStream *error = m_errors; error; error = error->m_next)
        error->m_stream = nullptr;
    m_errors = nullptr;
}

ioStream *ioXStream::getStream() const {
    return m_stream;
}

// Messages -------------------------------------------------------------------------------------

namespace {

std::string state_text(bool open, int state) {
    if (!open) return "stream not open";
    constexpr struct {
        int bit;
        const char *text;
    } bits[] = {{ioStream::Eof, "EOF reached"},
                {ioStream::Bad, "I/O error"},
                {ioStream::Fail, "conversion error"},
                {ioStream::Timeout, "timeout expired"},
                {ioStream::DataLost, "data lost"}};
    for (auto [bit, text] : bits)
        if (state & bit) return text;
    return "unknown error";
}

std::string error_text(ioError error, bool open, int state, const char *function) {
    switch (error) {
        case ioStreamState:
            return state_text(open, state);
        case ioInputNotAllowed:
            return "input denied";
        case ioOutputNotAllowed:
            return "output denied";
        case ioIncompatibleFormat:
            return "incompatible format";
        case ioImproperFunction:
            return std::string("function \"") + function + "\" can not be called in the current context";
        case ioUnsupportedFunction:
            return std::string("function \"") + function + "\" not supported";
    }
    return "unknown error";
}

}  // namespace

xstring ioXStream::getMsg() const {
    bool open = m_stream ? m_stream->m_open : m_wasopen;
    int state = m_stream ? m_stream->m_state : m_state;
    return ("Stream Error (iolib):" + error_text(m_error, open, state, m_function)).c_str();
}

// Throwing -------------------------------------------------------------------------------------

void ioStream::Throw(ioError error, const char *function) {
    xthrow(kel::construct_with<ioXStream>(
        [&](void *at) { return ::new (at) ioXStream(this, error, function); }));
}
void ioStream::Throw(ioError error) {
    Throw(error, "");
}
void ioStream::ThrowState(int bits) {
    m_state |= bits;
    Throw(ioStreamState);
}

void ioStream::TakeCode(ioTryCode code) {
    switch (code) {
        case ioSuccess:
        case ioWouldBlock:
            return;
        case ioEndOfFile:
            ThrowState(Eof);
        case ioFormatError:
            ThrowState(Fail);
        case ioNotSupported:
            Throw(ioUnsupportedFunction);
        case ioIOError:
            break;
    }
    ThrowState(Bad);
}
