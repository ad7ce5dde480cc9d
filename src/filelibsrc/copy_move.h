// The last step of a move to another file system.
#pragma once

#include "filelibsrc/trees.h"
#include "runtime/directory.h"

namespace kel::detail {

// Removes what has been copied: an entry that is new or has changed since then is left where it is, and the
// removal ends there as a failure, with its path.
fsErrorCode remove_moved(const place &from, const place &copy, tree_path &path);

}  // namespace kel::detail
