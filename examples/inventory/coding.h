// How an inventory becomes a sequence of basic values on a stream, the same in all three encodings.
//
//   text     "kelstdmt inventory 1"
//   Inventory
//   text     "end"
//
//   a struct      its fields, in the order in which they are declared; an optional one behind a bool
//                 that tells whether it has a value
//   a sequence    an int, the number of elements, and the elements
//   a dictionary  an int, the number of entries, and the entries: a text, the key, and the value
//   an enum       an int, the enumerator's number
//
// In the text encoding every value ends with a line end. A text could not stand there bare: reading skips
// leading white space, an empty line is no text, and a line end would cut it. So it stands between double
// quotes, with \n for a line end and \\ for a backslash within.
#pragma once

#include "progress.h"
#include "types.h"

// Writing asks the descriptors alone and works for every declared type made of these kinds.
void WriteInventory(ioStream &stream, Inventory &inventory, Progress &progress);

// Reading makes the objects, so it knows them. Throws ioXStream where the data ends too early and XBadData
// where it makes no sense. `into` is empty at first; what was read before a failure is there.
void ReadInventory(ioStream &stream, Inventory &into, Progress &progress);

// The bytes that WriteInventory would write on a stream with this encoding.
long long SizeOf(ioSerializer *encoding, Inventory &inventory);
