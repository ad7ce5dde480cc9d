// What the operations on trees share: the path that grows and shrinks with a recursion, and the entry that a
// path names.
#pragma once

#include <string>
#include <string_view>

#include <kelstdmt/vumrt.h>

#include "filelibsrc/path_checks.h"
#include "runtime/tree.h"

namespace kel::detail {

inline fsErrorCode last_code() {
    return fsErrorFromLast(Error_GetLast());
}

// In the callers' form. What could not be told to a caller is refused, and stands in the text then.
class tree_path {
public:
    explicit tree_path(std::string top) : m_text(std::move(top)) {
        m_text.reserve(fsMaxPath + 1);
        m_is_open = m_text.size() == drive_length(m_text) || is_separator(m_text.back());
    }

    fsErrorCode enter(std::string_view name) {
        if (!m_is_open) m_text += '\\';
        m_text += name;
        m_is_open = false;
        if (name.find('\\') != name.npos) return fsErrInvalidName;
        return m_text.size() > fsMaxPath ? fsErrInvalidPath : fsErrSuccess;
    }
    // Back to a size and state from before.
    struct mark {
        std::size_t size;
        bool is_open;
    };
    mark here() const noexcept { return {m_text.size(), m_is_open}; }
    void back(mark to) {
        m_text.resize(to.size);
        m_is_open = to.is_open;
    }

    const std::string &text() const noexcept { return m_text; }

private:
    std::string m_text;
    bool m_is_open;  // a name needs no separator before it
};

// The entry that a host path names, in a folder that is open from now on.
class place {
public:
    // On failure, the folder is not there or must not be searched.
    system::outcome open(const std::string &host_path);

    int folder() const noexcept { return m_folder ? m_folder.get() : system::here; }
    const char *name() const noexcept { return m_name.c_str(); }
    // Not so: the root, "." and "..", which cannot be taken out of a folder or put into one.
    bool is_entry() const noexcept { return !m_name.empty() && m_name != "." && m_name != ".."; }

private:
    system::owned_descriptor m_folder;
    std::string m_name;
};

// Whether a caller's path is a drive's root, which is a folder like any other on the host, but must stay.
bool is_root(const std::string &path) noexcept;

// Without the separators at the end, which would follow a link.
std::string without_end(std::string host_path);

// Makes the folders that are missing on the way: the path itself too, or those above it. On failure,
// `culprit` is the one that could not be made.
fsErrorCode make_folders(const std::string &path, bool itself, std::string &culprit);

}  // namespace kel::detail
