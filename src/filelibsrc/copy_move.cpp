// Source and copy are walked side by side, so nothing has to be remembered about a tree of any size.
#include "filelibsrc/copy_move.h"

#include <utility>

namespace kel::detail {

using system::links;
using system::outcome;

namespace {

constexpr int not_empty = 145;

// Some file systems keep fewer digits of a second, or even seconds only.
bool is_same_time(const system::instant &source, const system::instant &copy) noexcept {
    constexpr long second = 1'000'000'000;
    for (long grain = 1; grain < second; grain *= 10)
        if (source.seconds == copy.seconds && source.nanoseconds / grain * grain == copy.nanoseconds)
            return true;
    const long long apart = source.seconds - copy.seconds;
    return copy.nanoseconds == 0 && apart >= -1 && apart <= 1;
}

bool is_copied(const system::status &source, const system::status &copy) noexcept {
    if (source.kind() != copy.kind()) return false;
    return source.kind() != system::file_kind ||
           (source.size == copy.size && is_same_time(source.modified, copy.modified));
}

fsErrorCode remove_entry(int folder, const char *name, int copy_folder, const char *copy_name,
                         tree_path &path);

fsErrorCode empty_folder(int folder, const char *name, int copy_folder, const char *copy_name,
                         tree_path &path) {
    system::owned_descriptor opened, copy;
    if (system::open_folder(folder, name, links::seen, opened) != outcome::done ||
        system::reach_folder(copy_folder, copy_name, links::seen, copy) != outcome::done)
        return last_code();
    system::directory listing;
    listing.take(std::move(opened));
    const tree_path::mark before = path.here();
    system::directory_entry entry;
    system::listing_step step;
    while ((step = listing.next(entry)) == system::listing_step::entry) {
        if (const fsErrorCode code = path.enter(entry.view())) return code;
        const fsErrorCode code = remove_entry(listing.descriptor(), entry.name, copy.get(), entry.name, path);
        if (code) return code;
        path.back(before);
    }
    return step == system::listing_step::end ? fsErrSuccess : last_code();
}

fsErrorCode remove_entry(int folder, const char *name, int copy_folder, const char *copy_name,
                         tree_path &path) {
    system::status source, copy;
    if (system::look(folder, name, links::seen, source) != outcome::done) return last_code();
    if (system::look(copy_folder, copy_name, links::seen, copy) != outcome::done ||
        !is_copied(source, copy)) {
        Error_SetLast(not_empty);
        return last_code();
    }
    if (source.kind() != system::folder_kind)
        return system::remove_file(folder, name) == outcome::done ? fsErrSuccess : last_code();
    // Asked to go before anything in it does: another file system may be mounted on it.
    const outcome gone = system::remove_folder(folder, name);
    if (gone != outcome::not_empty) return gone == outcome::done ? fsErrSuccess : last_code();
    if (const fsErrorCode code = empty_folder(folder, name, copy_folder, copy_name, path)) return code;
    return system::remove_folder(folder, name) == outcome::done ? fsErrSuccess : last_code();
}

}  // namespace

fsErrorCode remove_moved(const place &from, const place &copy, tree_path &path) {
    return remove_entry(from.folder(), from.name(), copy.folder(), copy.name(), path);
}

}  // namespace kel::detail
