#include "srcnmscm/wire.h"

#include <algorithm>

#include <kelstdmt/nmsclib.h>

namespace kel::detail {

name_stream_reader::name_stream_reader(netSocketStream &stream)
    : m_stream(stream), m_input(stream.InputEvent()) {}

unsigned name_stream_reader::read_some(char *bytes, unsigned room) {
    unsigned waiting = m_stream.PeekNBytes();
    if (waiting == 0) {
        if (!m_input || !m_input->Wait(name_service_patience)) return 0;
        waiting = m_stream.PeekNBytes();
    }
    return waiting == 0 ? 0 : m_stream.ReadBytes(bytes, std::min(waiting, room));
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
