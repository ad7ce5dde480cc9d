// Source and copy are walked side by side, so nothing has to be remembered about a tree of any size.
#include "filelibsrc/copy_move.h"

#include <string>
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

struct entry_place {
    int folder;
    const char *name;
};

bool is_same_link(entry_place source, entry_place copy) {
    std::string text, copied;
    return system::read_link(source.folder, source.name, text) == outcome::done &&
           system::read_link(copy.folder, copy.name, copied) == outcome::done && text == copied;
}

bool is_copied(entry_place source, const system::status &told, entry_place copy) {
    system::status copied;
    if (system::look(copy.folder, copy.name, links::seen, copied) != outcome::done ||
        told.kind() != copied.kind())
        return false;
    if (told.kind() == system::link_kind) return is_same_link(source, copy);
    return told.kind() != system::file_kind ||
           (told.size == copied.size && is_same_time(told.modified, copied.modified));
}

fsErrorCode remove_entry(entry_place source, entry_place copy, tree_path &path);

fsErrorCode empty_folder(entry_place source, entry_place copy, tree_path &path) {
    system::owned_descriptor opened, reached;
    if (system::open_folder(source.folder, source.name, links::seen, opened) != outcome::done ||
        system::reach_folder(copy.folder, copy.name, links::seen, reached) != outcome::done)
        return last_code();
    system::directory listing;
    listing.take(std::move(opened));
    const tree_path::mark before = path.here();
    system::directory_entry entry;
    system::listing_step step;
    while ((step = listing.next(entry)) == system::listing_step::entry) {
        if (const fsErrorCode code = path.enter(entry.view())) return code;
        const fsErrorCode code =
            remove_entry({listing.descriptor(), entry.name}, {reached.get(), entry.name}, path);
        if (code) return code;
        path.back(before);
    }
    return step == system::listing_step::end ? fsErrSuccess : last_code();
}

fsErrorCode remove_entry(entry_place source, entry_place copy, tree_path &path) {
    system::status told;
    const auto [folder, name] = source;
    if (system::look(folder, name, links::seen, told) != outcome::done) return last_code();
    if (!is_copied(source, told, copy)) {
        Error_SetLast(not_empty);
        return last_code();
    }
    if (told.kind() != system::folder_kind)
        return system::remove_file(folder, name) == outcome::done ? fsErrSuccess : last_code();
    // Asked to go before anything in it does: another file system may be mounted on it.
    const outcome gone = system::remove_folder(folder, name);
    if (gone != outcome::not_empty) return gone == outcome::done ? fsErrSuccess : last_code();
    if (const fsErrorCode code = empty_folder(source, copy, path)) return code;
    return system::remove_folder(folder, name) == outcome::done ? fsErrSuccess : last_code();
}

}  // namespace

fsErrorCode remove_moved(const place &from, const place &copy, tree_path &path) {
    return remove_entry({from.folder(), from.name()}, {copy.folder(), copy.name()}, path);
}

}  // namespace kel::detail
