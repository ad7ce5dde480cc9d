// The replacement of a locked file.
#pragma once

#include <string>
#include <string_view>

#include "runtime/owned_descriptor.h"

namespace kel::system {

// Puts a new file with these bytes in the place of the open one, which must be locked exclusively, in one
// step: whoever reads, and a machine that stops, finds the old bytes or the new ones. The new file has the
// owner, group, permissions and extended attributes of the old one. Answers the new file, open for reading
// and writing and locked exclusively; without one, the last error is set and the old file stays.
//
// The path is a host path without links that leads to the open file, or to nothing if that was removed.
owned_descriptor replace_file(const std::string &path, int old_file, std::string_view bytes);

}  // namespace kel::system
