// Bytes to and from a name server over a stream. Only what has come is read, so no read waits longer than was
// meant; only what the system has room for is written.
#include "srcnmscm/wire.h"

#include <algorithm>

#include <kelstdmt/nmsclib.h>

namespace kel::detail {

name_stream_reader::name_stream_reader(netSocketStream &stream, name_bounds &bounds)
    : m_stream(stream), m_bounds(bounds), m_input(stream.InputEvent()) {}

unsigned name_stream_reader::read_some(char *bytes, unsigned room) {
    unsigned waiting = m_stream.PeekNBytes();
    if (waiting == 0) {
        if (!m_input || !m_input->Wait(m_bounds.seconds_left())) return 0;
        waiting = m_stream.PeekNBytes();
    }
    const unsigned got = waiting == 0 ? 0 : m_stream.ReadBytes(bytes, std::min(waiting, room));
    m_bounds.moved(got);
    return got;
}

bool name_stream_reader::read(char *bytes, unsigned count) {
    while (count > 0) {
        const unsigned got = read_some(bytes, count);
        if (got == 0) return false;
        bytes += got;
        count -= got;
    }
    return true;
}

bool name_stream_reader::read(name_record_reader &record) {
    char bytes[512];
    std::size_t size = 0;
    while (record.missing() > 0) {
        const unsigned got =
            read_some(bytes, static_cast<unsigned>(std::min(record.missing(), sizeof bytes)));
        if (got == 0) return false;
        size += record.feed(bytes, got);
    }
    return record.is_whole() && m_bounds.allow_record(size);
}

bool write_names(netSocketStream &stream, std::string_view bytes, name_bounds &bounds) {
    if (bytes.size() <= name_bounds::piece) {
        stream.WriteBytes(bytes.data(), static_cast<unsigned>(bytes.size()));
        return true;
    }
    const std::unique_ptr<ioEvent> room(stream.OutputEvent());
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), name_bounds::piece))) {
        const std::string_view piece = bytes.substr(0, name_bounds::piece);
        if (!room || !room->Wait(bounds.seconds_left())) return false;
        stream.WriteBytes(piece.data(), static_cast<unsigned>(piece.size()));
        stream.Flush();
        if (!stream.getIsGood()) return false;
        bounds.moved(piece.size());
    }
    return true;
}

}  // namespace kel::detail

void PutIndependentInt(netSocketStream *stream, int value) {
    std::string bytes;
    kel::append_int(bytes, value);
    stream->WriteBytes(bytes.data(), static_cast<unsigned>(bytes.size()));
}

int GetIndependentInt(netSocketStream *stream) {
    char bytes[4];
    for (unsigned have = 0; have < sizeof bytes;)
        have += stream->ReadBytes(bytes + have, static_cast<unsigned>(sizeof bytes) - have);
    return kel::int_at(bytes);
}
