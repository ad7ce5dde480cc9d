// The bytes of a record on a caller's stream: each piece is awaited, but not for ever.
#pragma once

#include <string_view>

#include <kelstdmt/netlib_stream.h>
#include <kelstdmt/vumrt_names.h>

namespace kel::detail {

// Up to the record's end and no further. False when it is malformed, or the peer falls silent or is gone.
// Throws ioXStream when the stream cannot be read.
bool read_record(netSocketStream &stream, name_record_reader &record);

// Leaves few bytes to be flushed; many go out as the peer takes them. False when it takes none, or is gone.
bool write_record(netSocketStream &stream, std::string_view bytes);

}  // namespace kel::detail
