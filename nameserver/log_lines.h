// Where the parts of a name server tell what went wrong, a line at a time.
#pragma once

#include <functional>
#include <string>

namespace kel::detail {

using log_lines = std::function<void(const std::string &)>;

}  // namespace kel::detail
