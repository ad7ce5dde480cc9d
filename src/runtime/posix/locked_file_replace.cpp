// The replacement of a file: written aside in the same folder, made durable, and renamed over the old one.
//
// The new file is locked before it has the name, so that there is no moment at which a newcomer could lock
// it. Its name aside is always the same, because only the holder of the old file's lock makes one: what a
// killed holder left is removed by the next.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#define _FILE_OFFSET_BITS 64

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include <kelstdmt/vumrt.h>

#include "runtime/posix/descriptor.h"
#include "runtime/posix/file_lock.h"
#include "runtime/posix/locked_file.h"
#include "runtime/posix/through_signals.h"
#include "runtime/system.h"

namespace kel::system {

namespace {

// The failures below are told by errno; replace_file makes the last error of it.

// The names of a file's extended attributes, access control lists among them.
bool list_attributes(int file, std::vector<std::string> &names) {
    ssize_t size = ::flistxattr(file, nullptr, 0);
    if (size < 0 && errno != ENOTSUP) return false;
    if (size <= 0) return true;
    std::string list(static_cast<std::size_t>(size), '\0');
    size = ::flistxattr(file, list.data(), list.size());
    if (size < 0) return false;
    for (std::size_t at = 0; at < static_cast<std::size_t>(size); at += names.back().size() + 1)
        names.emplace_back(list.c_str() + at);
    return true;
}

// Attributes in these name spaces are given by the system's own rules, and often not ours to set.
bool is_for_the_system(const std::string &name) {
    return name.starts_with("security.") || name.starts_with("trusted.");
}

bool copy_attribute(int from, int to, const std::string &name) {
    ssize_t size = ::fgetxattr(from, name.c_str(), nullptr, 0);
    if (size < 0) return false;
    std::string value(static_cast<std::size_t>(size), '\0');
    size = ::fgetxattr(from, name.c_str(), value.data(), value.size());
    return size >= 0 && ::fsetxattr(to, name.c_str(), value.data(), static_cast<std::size_t>(size), 0) == 0;
}

// Also takes away what the folder gave to the new file: its default list may let in others.
bool copy_attributes(int from, int to) {
    std::vector<std::string> wanted, present;
    if (!list_attributes(from, wanted) || !list_attributes(to, present)) return false;
    for (const std::string &name : present)
        if (std::find(wanted.begin(), wanted.end(), name) == wanted.end() &&
            ::fremovexattr(to, name.c_str()) != 0 && !is_for_the_system(name))
            return false;
    for (const std::string &name : wanted)
        if (!copy_attribute(from, to, name) && !is_for_the_system(name)) return false;
    return true;
}

// Owner first: a change of it takes permissions away.
bool copy_owner_and_permissions(int from, int to) {
    struct stat wanted {
    }, present{};
    if (::fstat(from, &wanted) != 0 || ::fstat(to, &present) != 0) return false;
    bool owned = wanted.st_uid == present.st_uid && wanted.st_gid == present.st_gid;
    if (!owned && ::fchown(to, wanted.st_uid, wanted.st_gid) != 0) return false;
    return copy_attributes(from, to) && ::fchmod(to, wanted.st_mode & 07777) == 0;
}

bool make_durable(int file) {
    return through_signals([&] { return ::fsync(file); }) == 0;
}

// The new file while it stands aside; one that was not put in place is removed.
class file_aside {
public:
    explicit file_aside(const std::string &path) : m_name(path.substr(path.rfind('/') + 1)) {
        const std::string folder = path.substr(0, path.rfind('/') + 1);
        constexpr int flags = O_DIRECTORY | O_CLOEXEC;
        m_folder.reset(::open(folder.c_str(), O_RDONLY | flags));
        // A folder that may not be listed may still be written to.
        if (!m_folder && errno == EACCES) m_folder.reset(::open(folder.c_str(), O_PATH | flags));
    }
    ~file_aside() {
        if (!m_made) return;
        int before = errno;
        ::unlinkat(m_folder.get(), m_aside.c_str(), 0);
        errno = before;
    }
    file_aside(const file_aside &) = delete;
    file_aside &operator=(const file_aside &) = delete;

    bool Make() {
        constexpr std::size_t longest = 200;  // so that name and endings fit whatever the name
        const std::string usual = "." + m_name.substr(0, longest) + ".new";
        m_aside = usual;
        constexpr int attempts = 8;
        for (int attempt = 0; m_folder && attempt < attempts; ++attempt) {
            constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
            m_file.reset(::openat(m_folder.get(), m_aside.c_str(), flags, 0600));
            m_made = static_cast<bool>(m_file);
            if (m_made) return set_lock(m_file.get(), F_WRLCK);
            if (errno != EEXIST) return false;
            // What cannot be removed is not of our making.
            if (::unlinkat(m_folder.get(), m_aside.c_str(), 0) != 0)
                m_aside = usual + std::to_string(random_bits());
        }
        return false;
    }

    // False when the name leads to neither the old file nor nothing, or the new file does not stand aside any
    // more: someone who takes no locks was here, and what he made is not to be lost.
    bool MayBePut(int old_file) const {
        return Standing(m_aside, m_file.get()) == standing::same &&
               Standing(m_name, old_file) != standing::other;
    }
    bool Put() {
        if (::renameat(m_folder.get(), m_aside.c_str(), m_folder.get(), m_name.c_str()) != 0) return false;
        m_made = false;
        return true;
    }

    int file() const { return m_file.get(); }
    int folder() const { return m_folder.get(); }
    owned_descriptor Take() { return std::move(m_file); }

private:
    enum class standing { same, other, nothing };
    standing Standing(const std::string &name, int file) const {
        struct stat named {
        }, open{};
        if (::fstatat(m_folder.get(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0)
            return errno == ENOENT ? standing::nothing : standing::other;
        bool same = ::fstat(file, &open) == 0 && named.st_ino == open.st_ino && named.st_dev == open.st_dev;
        return same ? standing::same : standing::other;
    }

    owned_descriptor m_folder, m_file;
    std::string m_name, m_aside;
    bool m_made = false;  // and stands aside
};

}  // namespace

owned_descriptor replace_file(const std::string &path, int old_file, std::string_view bytes) {
    constexpr int replaced_by_others = 1006;
    file_aside made(path);
    bool ready = made.Make() && write_all(made.file(), bytes.data(), bytes.size()) == bytes.size() &&
                 copy_owner_and_permissions(old_file, made.file()) && make_durable(made.file());
    if (ready && !made.MayBePut(old_file)) {
        Error_SetLast(replaced_by_others);
        return {};
    }
    if (!ready || !made.Put()) {
        Error_SetLastFromSystem(errno, path.c_str());
        return {};
    }
    // The bytes are safe and seen by all. Should the name be lost with the machine's power, the old file is
    // back whole.
    make_durable(made.folder());
    return made.Take();
}

}  // namespace kel::system
