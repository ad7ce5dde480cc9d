// Bytes in memory. The get area reaches as far as somebody last looked; whoever looks again first moves
// its end up to what has been written meanwhile, so writing itself only moves one pointer.
#include <algorithm>
#include <cstring>
#include <new>

#include <kelstdmt/iolib_streams.h>

namespace {

constexpr std::size_t least_capacity = 256;

}  // namespace

xmemorybuf::xmemorybuf(const char *text) : m_writable(false) {
    std::size_t size = kel::is_text(text) ? std::strlen(text) : 0;
    m_data = std::make_unique_for_overwrite<char[]>(size + 1);
    std::memcpy(m_data.get(), size > 0 ? text : "", size + 1);
    setg(m_data.get(), m_data.get(), m_data.get() + size);
}

xmemorybuf::~xmemorybuf() = default;

std::size_t xmemorybuf::GetSize() const noexcept {
    const char *end = m_writable ? pptr() : egptr();
    return m_data ? static_cast<std::size_t>(end - m_data.get()) : 0;
}

const char *xmemorybuf::GetUnread(std::size_t &size) {
    ShowWritten();
    size = static_cast<std::size_t>(egptr() - gptr());
    return gptr();
}

// Reading --------------------------------------------------------------------------------------

void xmemorybuf::ShowWritten() {
    if (m_writable && egptr() != pptr()) setg(m_data.get(), gptr(), pptr());
}

xmemorybuf::int_type xmemorybuf::underflow() {
    ShowWritten();
    return gptr() < egptr() ? traits_type::to_int_type(*gptr()) : traits_type::eof();
}

std::streamsize xmemorybuf::xsgetn(char *to, std::streamsize count) {
    ShowWritten();
    std::streamsize taken = std::clamp<std::streamsize>(count, 0, egptr() - gptr());
    if (taken == 0) return 0;
    std::memcpy(to, gptr(), static_cast<std::size_t>(taken));
    setg(eback(), gptr() + taken, egptr());
    return taken;
}

// Writing --------------------------------------------------------------------------------------

// Room for at least so many bytes behind what was written; false when there is no memory.
bool xmemorybuf::Grow(std::size_t needed) {
    std::size_t size = GetSize(), read = static_cast<std::size_t>(gptr() - eback());
    if (needed > static_cast<std::size_t>(PTRDIFF_MAX) - size) return false;
    std::size_t capacity = std::max({size + needed, size + size / 2, least_capacity});
    std::unique_ptr<char[]> grown(new (std::nothrow) char[capacity]);
    if (!grown) return false;
    if (size > 0) std::memcpy(grown.get(), m_data.get(), size);
    m_data = std::move(grown);
    setg(m_data.get(), m_data.get() + read, m_data.get() + size);
    setp(m_data.get() + size, m_data.get() + capacity);
    return true;
}

std::streamsize xmemorybuf::xsputn(const char *from, std::streamsize count) {
    if (!m_writable || count <= 0) return 0;
    if (count > epptr() - pptr() && !Grow(static_cast<std::size_t>(count))) return 0;
    std::memcpy(pptr(), from, static_cast<std::size_t>(count));
    setp(pptr() + count, epptr());
    return count;
}

xmemorybuf::int_type xmemorybuf::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
    char byte = traits_type::to_char_type(character);
    return xsputn(&byte, 1) == 1 ? character : traits_type::eof();
}

// With trials ----------------------------------------------------------------------------------

xstringbuf::xstringbuf() {
    InitStreamBuf(this);
}
xstringbuf::xstringbuf(const char *text) : xmemorybuf(text) {
    InitStreamBuf(this);
}
xstringbuf::~xstringbuf() = default;

std::streambuf *xstringbuf::OnGetTryIBuf() {
    SetEofReached();
    std::size_t size;
    const char *unread = GetUnread(size);
    m_try.TakeBuf(unread, size);
    return &m_try;
}
void xstringbuf::OnFreeTryIBuf() {
    m_try.FreeBuf();
}
