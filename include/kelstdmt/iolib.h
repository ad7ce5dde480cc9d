// Streams: typed values and raw bytes through files, pipes, texts in memory and the console, in three
// encodings. doc/streams.md shows the formats byte by byte.
#pragma once

#include <kelstdmt/iolib_serializer.h>
#include <kelstdmt/iolib_stream.h>
#include <kelstdmt/iolib_streams.h>
