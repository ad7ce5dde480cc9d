// Reading what a name server answers: each piece is awaited, but not for ever.
#pragma once

#include <kelstdmt/netlib_stream.h>

namespace kel::detail {

class name_stream_reader {
public:
    explicit name_stream_reader(netSocketStream &stream);

    // All of the bytes; false when the name server falls silent or is gone. Throws ioXStream when the stream
    // cannot be read.
    bool read(char *bytes, unsigned count);
    // At least one and at most the room; 0 when it falls silent or is gone.
    unsigned read_some(char *bytes, unsigned room);

private:
    netSocketStream &m_stream;
    const std::unique_ptr<ioEvent> m_input;
};

}  // namespace kel::detail
