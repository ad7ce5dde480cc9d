// A pipe as two streams.
#include <memory>

#include <kelstdmt/iolib_streams.h>

ioPipeStream::ioPipeStream(xstreambuf *buffer, int handle, bool writeend)
    : ioStream(ioSerializer::getBinary(), buffer, writeend, !writeend), m_end(buffer), m_handle(handle) {}

ioPipeStream::~ioPipeStream() {
    Close();
}

void ioPipeStream::OnClose() {
    Flush();
    delete m_end;
    m_handle = -1;
}

int ioPipeStream::GetInheritHandle() {
    return m_handle;
}

// The pipe -------------------------------------------------------------------------------------

ioPipe::ioPipe() = default;

// The read end goes first: bytes that nobody can read any more must not keep the write end waiting.
ioPipe::~ioPipe() {
    delete m_readstream;
    delete m_writestream;
}

ioPipe *ioPipe::Create() {
    std::unique_ptr<ioPipe> pipe(kel::construct_with<ioPipe>([](void *at) { return ::new (at) ioPipe; }));
    if (!btkAnonymousPipe::Create(pipe->m_output, pipe->m_input)) return nullptr;
    auto stream_over = [](auto buffer, int handle, bool writeend) {
        auto *stream = kel::construct_with<ioPipeStream>(
            [&](void *at) { return ::new (at) ioPipeStream(buffer.get(), handle, writeend); });
        buffer.release();
        return stream;
    };
    pipe->m_writestream =
        stream_over(std::make_unique<xopipebuf>(pipe->m_output), pipe->m_output.GetHandle(), true);
    pipe->m_readstream =
        stream_over(std::make_unique<xipipebuf>(pipe->m_input), pipe->m_input.GetHandle(), false);
    return pipe.release();
}
