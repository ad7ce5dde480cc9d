// What the two sources of the registry's store share: the lock of a tree, owners, and modes that no umask
// changes.
#pragma once

#include <sys/types.h>

#include "runtime/registry_store.h"

namespace kel::system {

inline mode_t folder_mode(const registry_root &root) noexcept {
    return root.for_all ? 0755 : 0700;
}
inline mode_t file_mode(const registry_root &root) noexcept {
    return root.for_all ? 0644 : 0600;
}
// What the superuser just made in somebody's folder is theirs, so that it does not lock them out of their
// own settings. False with errno set.
bool give_owner(int fd, int folder) noexcept;
// What was just made with that mode gets it in full. False with errno set.
bool give_mode(int fd, mode_t mode) noexcept;

// An openat, on through signals; errno tells a failure. It never waits, and its result never reaches a
// program that is executed.
int open_entry(int folder, const char *name, int flags, mode_t mode = 0);

// The lock of a tree, for as long as it lives. The file of the lock is opened for writing, so that who may
// only read cannot hold it; the lock belongs to the open file, so that threads exclude each other too.
class registry_lock {
public:
    registry_lock() = default;
    ~registry_lock();
    registry_lock(const registry_lock &) = delete;
    registry_lock &operator=(const registry_lock &) = delete;

    // False with errno set: EAGAIN when others held it all the time.
    bool take(const registry_root &root);

private:
    owned_descriptor m_file;
};

}  // namespace kel::system
