// What needs no system: the view of foreign bytes, the base of the stream buffers and the text stream.
#include <kelstdmt/vumrt_stream.h>

#include <algorithm>
#include <cstring>

xtrystreambuf::~xtrystreambuf() = default;

void xtrystreambuf::TakeBuf(const char *bytes, std::size_t count) {
    // The view is never written: there is no put area, and putting another character back fails.
    char *begin = const_cast<char *>(bytes);
    setg(begin, begin, begin + count);
}

std::streamsize xtrystreambuf::xsgetn(char *to, std::streamsize count) {
    std::streamsize taken = std::clamp(count, std::streamsize{0}, static_cast<std::streamsize>(GetAvail()));
    if (taken > 0) std::memcpy(to, gptr(), static_cast<std::size_t>(taken));
    setg(eback(), gptr() + taken, egptr());
    return taken;
}

xtrystreambuf::pos_type xtrystreambuf::seekoff(off_type offset, std::ios_base::seekdir from,
                                               std::ios_base::openmode which) {
    off_type size = egptr() - eback();
    off_type origin = from == std::ios_base::cur ? gptr() - eback() : from == std::ios_base::end ? size : 0;
    if (!(which & std::ios_base::in) || offset < -origin || offset > size - origin)
        return pos_type(off_type(-1));
    setg(eback(), eback() + (origin + offset), egptr());
    return origin + offset;
}
xtrystreambuf::pos_type xtrystreambuf::seekpos(pos_type position, std::ios_base::openmode which) {
    return seekoff(position, std::ios_base::beg, which);
}

xstreambuf::~xstreambuf() = default;

btkBaseEvent *xstreambuf::GetInputEvent() {
    return nullptr;
}
btkBaseEvent *xstreambuf::GetOutputEvent() {
    return nullptr;
}
int xstreambuf::GetBufSize() {
    return 0;
}
int xstreambuf::SetBufSize(int) {
    return 0;
}
std::streambuf *xstreambuf::OnGetTryIBuf() {
    return nullptr;
}
void xstreambuf::OnFreeTryIBuf() {}
std::streambuf *xstreambuf::OnGetTryOBuf() {
    return nullptr;
}
void xstreambuf::OnFreeTryOBuf() {}

btkStrstream::btkStrstream(const char *text)
    : btkStrstream(text, kel::is_text(text) ? std::strlen(text) : 0) {}

btkStrstream::btkStrstream(const char *text, std::size_t count)
    : text_source{{kel::is_text(text) ? text : "", kel::is_text(text) ? count : 0}}, std::istream(&bytes) {}

btkStrstream::~btkStrstream() = default;
