// The names of this machine and of the user of this process.
#pragma once

#include <string>

namespace kel::system {

bool host_name(std::string &name);
// By the effective user id; false too when the system has no name for it.
bool user_name(std::string &name);
// Real or effective.
bool is_superuser() noexcept;

}  // namespace kel::system
