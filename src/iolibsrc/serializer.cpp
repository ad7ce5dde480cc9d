// The shared encoders, and what the encodings have in common: raw blocks, single bytes and strings with
// a length ahead of them.
//
// The length of a string comes from outside and promises nothing. A string that lies whole in the get
// area is copied once. Any other is read in pieces that grow with what has arrived, so that a length of
// two billion ahead of ten bytes costs one small piece.
#include <algorithm>
#include <atomic>
#include <limits>
#include <string>

#include <kelstdmt/iolib_serializer.h>
#include <kelstdmt/vumrt_stream.h>

#include "iolibsrc/stream_area.h"

using kel::detail::stream_area;

namespace {

// Shared encoders ------------------------------------------------------------------------------------

MT_LIBRARY_GUARD(encoder_guard);

template <class Encoder>
class shared_encoder {
public:
    Encoder *get() {
        if (Encoder *ready = m_encoder.load(std::memory_order_acquire)) return ready;
        MT_LIBRARY_GUARD_USE(encoder_guard);
        Encoder *encoder = m_encoder.load(std::memory_order_relaxed);
        if (!encoder) m_encoder.store(encoder = kel::construct<Encoder>(), std::memory_order_release);
        return encoder;
    }
    void release() { delete m_encoder.exchange(nullptr); }

private:
    std::atomic<Encoder *> m_encoder{nullptr};
};

constinit shared_encoder<ioAsciiSerializer> ascii;
constinit shared_encoder<ioBinarySerializer> binary;
constinit shared_encoder<ioXDRSerializer> xdr;

// Runs when the library is unloaded, which is after the static objects of those who use it are gone.
[[gnu::destructor]] void release_encoders() {
    ascii.release();
    binary.release();
    xdr.release();
}

// Strings --------------------------------------------------------------------------------------------

constexpr std::size_t first_piece = 65536;

// A view of foreign bytes has no more than what it shows. Trials use such views: without this question a
// trial that is repeated while a long string arrives would copy all of it each time.
bool ends_before(std::streambuf &from, std::size_t length) {
    auto *view = dynamic_cast<xtrystreambuf *>(&from);
    return view && view->GetAvail() < length;
}

ioTryCode outcome(std::ptrdiff_t got) {
    return got < 0 ? ioIOError : ioEndOfFile;
}

ioTryCode read_short_text(xstring &value, std::streambuf &from, std::size_t length) {
    char *buffer = kel::detail::buffer_create(length);
    xstring text = xstring::Adopt(buffer);
    std::ptrdiff_t got = kel::detail::take(from, buffer, length);
    if (got != static_cast<std::ptrdiff_t>(length)) return outcome(got);
    value = std::move(text);
    return ioSuccess;
}

ioTryCode read_long_text(xstring &value, std::streambuf &from, std::size_t length) {
    std::string text;
    while (text.size() < length) {
        std::size_t have = text.size(), piece = std::min(length - have, std::max(have, first_piece));
        text.resize(have + piece);
        std::ptrdiff_t got = kel::detail::take(from, text.data() + have, piece);
        if (got != static_cast<std::ptrdiff_t>(piece)) return outcome(got);
    }
    value = xstring::FromBytes(text.data(), text.size());
    return ioSuccess;
}

ioTryCode read_text(xstring &value, std::streambuf &from, std::size_t length) {
    const char *bytes = stream_area::unread(from);
    if (length <= stream_area::unread_count(from)) {
        value = length > 0 ? xstring::FromBytes(bytes, length) : xstring("");
        stream_area::read_up_to(from, bytes + length);
        return ioSuccess;
    }
    if (ends_before(from, length)) {
        stream_area::read_up_to(from, stream_area::unread_end(from));
        return ioEndOfFile;
    }
    return length <= first_piece ? read_short_text(value, from, length) : read_long_text(value, from, length);
}

// One call of sgetn or sputn moves no more than this.
constexpr std::size_t largest_block = std::numeric_limits<std::streamsize>::max();

}  // namespace

// Blocks ---------------------------------------------------------------------------------------------

std::ptrdiff_t kel::detail::take_slowly(std::streambuf &from, char *bytes, std::size_t count) {
    return guarded(std::ptrdiff_t{-1}, [&] {
        std::size_t done = 0;
        while (done < count) {
            auto block = static_cast<std::streamsize>(std::min(count - done, largest_block));
            std::streamsize got = from.sgetn(bytes + done, block);
            if (got > 0) done += static_cast<std::size_t>(got);
            if (got < block) break;
        }
        return static_cast<std::ptrdiff_t>(done);
    });
}

bool kel::detail::put_slowly(std::streambuf &to, const char *bytes, std::size_t count) {
    return guarded(false, [&] {
        std::size_t done = 0;
        while (done < count) {
            auto block = static_cast<std::streamsize>(std::min(count - done, largest_block));
            std::streamsize taken = to.sputn(bytes + done, block);
            if (taken != block) return false;
            done += static_cast<std::size_t>(taken);
        }
        return true;
    });
}

// The base -------------------------------------------------------------------------------------------

ioSerializer::~ioSerializer() = default;

ioSerializer *ioSerializer::getAscii() {
    return ascii.get();
}
ioSerializer *ioSerializer::getBinary() {
    return binary.get();
}
ioSerializer *ioSerializer::getXDR() {
    return xdr.get();
}

// Bytes and strings ----------------------------------------------------------------------------------

unsigned ioByteSerializer::RdBytes(void *buffer, unsigned count, std::streambuf *from) {
    std::ptrdiff_t got = kel::detail::take(*from, static_cast<char *>(buffer), count);
    return got < 0 ? 0 : static_cast<unsigned>(got);
}

ioTryCode ioByteSerializer::WrBytes(void *buffer, unsigned count, std::streambuf *to) {
    return kel::detail::put(*to, static_cast<const char *>(buffer), count) ? ioSuccess : ioIOError;
}

ioTryCode ioByteSerializer::RdByte(char &value, std::streambuf *from) {
    std::ptrdiff_t got = kel::detail::take(*from, &value, 1);
    return got == 1 ? ioSuccess : outcome(got);
}

ioTryCode ioByteSerializer::WrByte(char value, std::streambuf *to) {
    return kel::detail::put(*to, &value, 1) ? ioSuccess : ioIOError;
}

unsigned ioByteSerializer::SzByte(char) {
    return 1;
}

ioTryCode ioByteSerializer::RdString(xstring &value, std::streambuf *from, const char *) {
    int length = 0;
    if (ioTryCode code = RdInt(length, from); code != ioSuccess) return code;
    if (length < 0) return ioFormatError;
    return kel::detail::guarded(ioIOError,
                                [&] { return read_text(value, *from, static_cast<std::size_t>(length)); });
}

ioTryCode ioByteSerializer::WrString(const char *text, std::streambuf *to) {
    std::size_t length = kel::detail::text_length(text);
    if (length > std::numeric_limits<int>::max()) return ioFormatError;
    if (ioTryCode code = WrInt(static_cast<int>(length), to); code != ioSuccess) return code;
    return length == 0 || kel::detail::put(*to, text, length) ? ioSuccess : ioIOError;
}

unsigned ioByteSerializer::SzString(const char *text) {
    std::size_t length = kel::detail::text_length(text);
    std::size_t prefix = SzInt(static_cast<int>(length));
    return static_cast<unsigned>(std::min<std::size_t>(length, UINT_MAX - prefix) + prefix);
}
