// Exchanging bytes with a name server over a stream: each piece is awaited, but not for ever.
#pragma once

#include <memory>
#include <string_view>

#include <kelstdmt/netlib_stream.h>

#include "runtime/names_bounds.h"

namespace kel::detail {

// False when the name server falls silent, is gone or says too much. Throws ioXStream when the stream cannot
// be read.
class name_stream_reader {
public:
    name_stream_reader(netSocketStream &stream, name_bounds &bounds);

    bool read(char *bytes, unsigned count);  // all of the bytes
    bool read(name_record_reader &record);   // up to its end and no further; false too when it is malformed

private:
    // At least one and at most the room; 0 when it falls silent or is gone.
    unsigned read_some(char *bytes, unsigned room);

    netSocketStream &m_stream;
    name_bounds &m_bounds;
    const std::unique_ptr<ioEvent> m_input;
};

// Leaves few bytes to be flushed; many go out as the peer takes them. False when it takes none, or is gone.
bool write_names(netSocketStream &stream, std::string_view bytes, name_bounds &bounds);

}  // namespace kel::detail
