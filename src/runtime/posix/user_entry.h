// What the system's list of users tells of one.
#pragma once

#include <pwd.h>

#include <cerrno>
#include <string>
#include <vector>

namespace kel::system {

// One of its texts, such as &passwd::pw_dir; empty where nothing is told.
inline std::string user_entry(uid_t user, char *passwd::*text) {
    constexpr std::size_t most = std::size_t{1} << 20;
    std::vector<char> room(1024);
    passwd entry{}, *found = nullptr;
    int error;
    while ((error = ::getpwuid_r(user, &entry, room.data(), room.size(), &found)) == EINTR ||
           (error == ERANGE && room.size() < most))
        if (error == ERANGE) room.resize(2 * room.size());
    return found && found->*text ? found->*text : "";
}

}  // namespace kel::system
