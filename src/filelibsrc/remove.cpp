// A folder is asked to go before anything in it does: one that may not be removed, or that another file
// system is mounted on, is refused whole.
#include "filelibsrc/remove.h"

#include <utility>

namespace kel::detail {

using system::entry_kind;
using system::outcome;

namespace {

// How often an entry may turn out to be something else than before, or to be filled again.
constexpr int patience = 16;

}  // namespace

system::directory &tree_removal::level(std::size_t depth) {
    while (m_levels.size() <= depth)
        m_levels.emplace_back();
    return m_levels[depth];
}

fsErrorCode tree_removal::remove(int folder, const char *name, tree_path &path) {
    return remove_entry(folder, name, entry_kind::untold, path, 0);
}

// What others removed meanwhile is removed as well; only the entry that the caller named must be there.
fsErrorCode tree_removal::remove_entry(int folder, const char *name, entry_kind kind, tree_path &path,
                                       std::size_t depth) {
    for (int attempt = 0; attempt < patience; ++attempt) {
        const bool is_folder = kind == entry_kind::folder;
        const outcome result =
            is_folder ? system::remove_folder(folder, name) : system::remove_file(folder, name);
        if (result == outcome::done || (result == outcome::absent && (depth > 0 || attempt > 0))) {
            if (!is_folder) m_progress.tell(path.text().c_str(), ++m_files, 0);
            return fsErrSuccess;
        }
        if (result == outcome::folder) {
            kind = entry_kind::folder;
        } else if (is_folder && result == outcome::no_folder) {
            kind = entry_kind::untold;
        } else if (is_folder && result == outcome::not_empty) {
            system::owned_descriptor inner;
            const outcome opened = system::open_folder(folder, name, system::links::seen, inner);
            if (opened == outcome::no_folder || opened == outcome::absent) {
                kind = entry_kind::untold;
                continue;
            }
            if (opened != outcome::done) return last_code();
            if (m_permission == permission::taken) system::set_mode(inner.get(), system::unfinished);
            level(depth).take(std::move(inner));
            if (const fsErrorCode code = empty_level(path, depth)) return code;
        } else {
            break;
        }
    }
    return last_code();
}

fsErrorCode tree_removal::empty_level(tree_path &path, std::size_t depth) {
    system::directory &listing = m_levels[depth];
    const tree_path::mark before = path.here();
    system::directory_entry entry;
    system::listing_step step;
    while ((step = listing.next(entry)) == system::listing_step::entry) {
        if (const fsErrorCode code = path.enter(entry.view())) return code;
        if (const fsErrorCode code =
                remove_entry(listing.descriptor(), entry.name, entry.kind, path, depth + 1))
            return code;
        path.back(before);
    }
    if (step == system::listing_step::failed) return last_code();
    listing.close();
    return fsErrSuccess;
}

}  // namespace kel::detail
