// Only what has come is read, so no read waits longer than was meant; only what the system has room for is
// written.
#include "srcnmscm/wire.h"

#include <algorithm>
#include <memory>

#include <kelstdmt/nmsclib.h>

#include "runtime/names_bounds.h"

namespace kel::detail {

bool read_record(netSocketStream &stream, name_record_reader &record) {
    const std::unique_ptr<ioEvent> input(stream.InputEvent());
    name_bounds bounds;
    char bytes[512];
    while (record.missing() > 0) {
        unsigned waiting = stream.PeekNBytes();
        if (waiting == 0) {
            if (!input || !input->Wait(bounds.seconds_left())) return false;
            waiting = stream.PeekNBytes();
        }
        const std::size_t wanted = std::min({record.missing(), sizeof bytes, std::size_t{waiting}});
        if (wanted == 0) return false;
        const unsigned got = stream.ReadBytes(bytes, static_cast<unsigned>(wanted));
        bounds.moved(got);
        record.feed(bytes, got);
    }
    return record.is_whole();
}

bool write_record(netSocketStream &stream, std::string_view bytes) {
    if (bytes.size() <= name_bounds::piece) {
        stream.WriteBytes(bytes.data(), static_cast<unsigned>(bytes.size()));
        return true;
    }
    const std::unique_ptr<ioEvent> room(stream.OutputEvent());
    name_bounds bounds;
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
