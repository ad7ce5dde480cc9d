// Removal of an entry with everything in it.
#pragma once

#include <deque>

#include "filelibsrc/progress.h"
#include "filelibsrc/trees.h"
#include "runtime/directory.h"

namespace kel::detail {

// By descriptor: what becomes a link in the middle of the work is removed as a link. After a failure,
// `path` says where it was. For one removal after the other.
class tree_removal {
public:
    enum class permission : unsigned char { as_is, taken };  // taken: of folders that are this user's

    explicit tree_removal(permission asked) : m_permission(asked), m_progress(nullptr) {}
    explicit tree_removal(const file_observer *observer = nullptr) : m_progress(observer) {}

    fsErrorCode remove(int folder, const char *name, tree_path &path);
    void finish(const tree_path &path) const { m_progress.finish(path.text().c_str(), m_files, 0); }

private:
    fsErrorCode remove_entry(int folder, const char *name, system::entry_kind kind, tree_path &path,
                             std::size_t depth);
    fsErrorCode empty_level(tree_path &path, std::size_t depth);
    system::directory &level(std::size_t depth);

    const permission m_permission = permission::as_is;
    std::deque<system::directory> m_levels;
    progress m_progress;
    double m_files = 0;
};

}  // namespace kel::detail
