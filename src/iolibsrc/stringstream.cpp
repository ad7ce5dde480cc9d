// A text in memory as a stream.
#include <cstring>
#include <memory>

#include <kelstdmt/iolib_streams.h>

ioStringStream::ioStringStream(xstringbuf *buffer, bool canwrite)
    : ioStream(ioSerializer::getAscii(), buffer, canwrite, true), m_buffer(buffer) {}

ioStringStream::~ioStringStream() {
    Close();
}

ioStringStream *ioStringStream::Create(const char *text) {
    bool empty = !kel::is_text(text);
    auto buffer = empty ? std::make_unique<xstringbuf>() : std::make_unique<xstringbuf>(text);
    auto *stream = kel::construct_with<ioStringStream>(
        [&](void *at) { return ::new (at) ioStringStream(buffer.get(), empty); });
    buffer.release();
    return stream;
}

void ioStringStream::OnClose() {
    delete m_buffer;
}

xstring ioStringStream::getStr() {
    GuardOutput();
    const char *data = m_buffer->GetData();
    std::size_t size = m_buffer->GetSize();
    if (size == 0) return "";
    if (const void *end = std::memchr(data, 0, size))
        size = static_cast<std::size_t>(static_cast<const char *>(end) - data);
    return xstring::FromBytes(data, size);
}
