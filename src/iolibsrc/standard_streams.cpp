// The process's standard streams. They are made on first use and flushed and deleted when the library is
// unloaded, behind the static objects of the programs and libraries that use it. Whoever asks even later
// gets a new one, which is deleted as the next thing of the process's end.
#include <atomic>
#include <cstdlib>
#include <memory>

#include <kelstdmt/iolib_streams.h>

// The two classes ------------------------------------------------------------------------------

ioStdinStream::ioStdinStream(xistdbuf *buffer)
    : ioStream(ioSerializer::getAscii(), buffer, false, true), m_buffer(buffer) {}

ioStdinStream::~ioStdinStream() {
    Close();
}
void ioStdinStream::OnClose() {
    delete std::exchange(m_buffer, nullptr);
}
int ioStdinStream::GetInheritHandle() {
    return m_buffer ? m_buffer->GetHandle() : -1;
}

ioStdoutStream::ioStdoutStream(xostdbuf *buffer)
    : ioStream(ioSerializer::getAscii(), buffer, true, false), m_buffer(buffer) {}

ioStdoutStream::~ioStdoutStream() {
    Close();
}
void ioStdoutStream::OnClose() {
    Flush();
    delete std::exchange(m_buffer, nullptr);
}
int ioStdoutStream::GetInheritHandle() {
    return m_buffer ? m_buffer->GetHandle() : -1;
}

// The three streams ----------------------------------------------------------------------------

namespace {

MT_LIBRARY_GUARD(standard_streams_guard);
constinit std::atomic<ioStream *> standard_streams[3] = {};
constinit bool unloading = false;

void delete_standard_streams() {
    {
        MT_LIBRARY_GUARD_USE(standard_streams_guard);
        unloading = true;
    }
    for (auto &stream : standard_streams)
        delete stream.exchange(nullptr);
}

// Ahead of the static objects of a program that this library is linked into.
struct at_unload {
    ~at_unload() { delete_standard_streams(); }
};
[[gnu::init_priority(101)]] const at_unload unload;

template <class Stream, class Buffer, class... Kind>
ioStream *standard_stream(std::atomic<ioStream *> &place, Kind... kind) {
    if (ioStream *ready = place.load(std::memory_order_acquire)) return ready;
    MT_LIBRARY_GUARD_USE(standard_streams_guard);
    if (ioStream *ready = place.load(std::memory_order_relaxed)) return ready;
    auto buffer = std::make_unique<Buffer>(kind...);
    ioStream *stream = kel::construct<Stream>(buffer.get());
    buffer.release();
    if (unloading) std::atexit(delete_standard_streams);
    place.store(stream, std::memory_order_release);
    return stream;
}

void refuse(int line) {
    _Abort(nullptr, "iolibsrc/xiolib", line);
}

}  // namespace

ioStream *ioStream::getStdin() {
    return standard_stream<ioStdinStream, xistdbuf>(standard_streams[0]);
}
ioStream *ioStream::getStdout() {
    return standard_stream<ioStdoutStream, xostdbuf>(standard_streams[1], 0);
}
ioStream *ioStream::getStderr() {
    return standard_stream<ioStdoutStream, xostdbuf>(standard_streams[2], 1);
}

void ioStream::setStdin(ioStream *) {
    refuse(__LINE__);
}
void ioStream::setStdout(ioStream *) {
    refuse(__LINE__);
}
void ioStream::setStderr(ioStream *) {
    refuse(__LINE__);
}
