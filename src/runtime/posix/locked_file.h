// What a locked file needs of the system: locks that belong to the open file, and its replacement.
#pragma once

#include <string>
#include <string_view>

#include "runtime/owned_descriptor.h"

namespace kel::system {

// The lock of a whole file, without waiting. False with errno set; EAGAIN when others hold it.
bool lock_at_once(int fd, bool exclusive) noexcept;

// Puts a new file with these bytes in the place of the open one, which must be locked exclusively, in one
// step: whoever reads, and a machine that stops, finds the old bytes or the new ones. The new file has the
// owner, group, permissions and extended attributes of the old one. Answers the new file, open for reading
// and writing and locked exclusively; without one, the last error is set and the old file stays.
//
// The path is a host path without links that leads to the open file, or to nothing if that was removed.
owned_descriptor replace_file(const std::string &path, int old_file, std::string_view bytes);

}  // namespace kel::system
