// Tries work that may never end, or end the process, in a child first.
#pragma once

#include <functional>

namespace bench {

// Null when the work answers true within so many seconds of the child's processor time and without more
// memory than the machine can give; else the reason, in the words of Table's cannot_prefix.
const char *attempt(unsigned seconds, const std::function<bool()> &work);

}  // namespace bench
