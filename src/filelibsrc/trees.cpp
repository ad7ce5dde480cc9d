// Making, removing, moving and copying of nodes and trees, as callers name them.
#include "filelibsrc/trees.h"

#include <kelstdmt/filelib_trees.h>

#include "filelibsrc/copy.h"
#include "filelibsrc/copy_move.h"
#include "filelibsrc/remove.h"

namespace detail = kel::detail;

using kel::detail::checked_path;
using kel::detail::is_root;
using kel::detail::make_folders;
using kel::detail::place;
using kel::detail::throw_last;
using kel::detail::tree_path;
using kel::detail::without_end;
using kel::system::here;
using kel::system::links;
using kel::system::outcome;

namespace kel::detail {

bool is_root(const std::string &path) noexcept {
    return path.find_last_not_of('\\') + 1 <= root_length(path);
}

std::string without_end(std::string host_path) {
    while (host_path.size() > 1 && host_path.back() == '/')
        host_path.pop_back();
    return host_path;
}

system::outcome place::open(const std::string &host_path) {
    const std::string path = without_end(host_path);
    const std::size_t separator = path.find_last_of('/');
    const std::size_t begin = separator == path.npos ? 0 : separator + 1;
    m_name = path.substr(begin);
    const std::string above = separator == path.npos ? "." : path.substr(0, begin);
    if (is_entry()) return system::reach_folder(system::here, above.c_str(), links::followed, m_folder);
    m_name.clear();
    return system::reach_folder(system::here, path.c_str(), links::followed, m_folder);
}

static bool is_folder(const std::string &path) {
    system::status told;
    return system::look(system::here, btkHostPath(path.c_str()).c_str(), links::followed, told) ==
               outcome::done &&
           told.kind() == system::folder_kind;
}

fsErrorCode make_folders(const std::string &path, bool itself, std::string &culprit) {
    constexpr unsigned everybody = 0777;
    const std::size_t root = root_length(path);
    std::size_t end = path.find_last_not_of('\\') + 1;
    if (!itself && end > root) end = path.find_last_of('\\', end - 1) + 1;
    if (end <= root || is_folder(path.substr(0, end))) return fsErrSuccess;
    for (std::size_t at = root; at < end;) {
        at = std::min(path.find('\\', at), end);
        culprit = path.substr(0, at);
        const std::string host = btkHostPath(culprit.c_str());
        outcome made = outcome::exists;
        if (at > root) made = system::make_folder(system::here, host.c_str(), everybody);
        const int reason = Error_GetLast();
        if (made != outcome::done && at > root && !is_folder(culprit)) {
            Error_SetLast(reason);
            // A file in the middle fails what comes below it.
            if (made != outcome::exists || at == end) return last_code();
        }
        ++at;
    }
    return fsErrSuccess;
}

}  // namespace kel::detail

namespace {

constexpr int in_use = 32, name_too_long = 206;

bool is_recursive(fsOpMode mode) noexcept {
    return mode != fsSimple;
}

[[noreturn]] void refuse_place(const char *function, const std::string &path) {
    Error_SetLast(in_use);
    detail::throw_invalid_path(function, path);
}

void remove_simply(const std::string &path, const char *function) {
    const std::string host = without_end(btkHostPath(path.c_str()));
    outcome result = kel::system::remove_file(here, host.c_str());
    if (result == outcome::folder) result = kel::system::remove_folder(here, host.c_str());
    if (result != outcome::done) throw_last(function, path);
}

void remove(const char *path, fsOpMode mode, const kel::file_observer *observer) {
    constexpr const char *function = "fsRemove";
    tree_path checked(checked_path(path, function));
    if (is_root(checked.text())) refuse_place(function, checked.text());
    detail::tree_removal removal(observer);
    if (!is_recursive(mode)) {
        remove_simply(checked.text(), function);
    } else {
        place entry;
        if (entry.open(btkHostPath(checked.text().c_str())) != outcome::done)
            throw_last(function, checked.text());
        if (!entry.is_entry()) refuse_place(function, checked.text());
        if (const fsErrorCode code = removal.remove(entry.folder(), entry.name(), checked))
            fsThrow(code, function, checked.text().c_str());
    }
    removal.finish(checked);
}

void copy(const char *from, const char *to, fsRecursiveCopyMode copy_mode, fsSoftLinkCopyMode link_mode,
          fsOpMode mode, const kel::file_observer *observer) {
    constexpr const char *function = "fsCopy";
    std::string source = checked_path(from, function), target = checked_path(to, function);
    detail::tree_copy work(std::move(source), std::move(target), link_mode, observer);
    if (const fsErrorCode code = work.copy(copy_mode, is_recursive(mode)))
        fsThrow(code, function, work.culprit().c_str());
}

// To another file system: the copy stands whole before anything of the source goes.
void move_elsewhere(const std::string &from, const std::string &to, const char *function) {
    detail::tree_copy work(from, to, fsNewLink, nullptr);
    if (const fsErrorCode code = work.copy_to_move()) fsThrow(code, function, work.culprit().c_str());
    place source, target;
    tree_path path(from);
    if (source.open(btkHostPath(from.c_str())) != outcome::done) throw_last(function, from);
    if (target.open(btkHostPath(to.c_str())) != outcome::done) throw_last(function, to);
    if (const fsErrorCode code = detail::remove_moved(source, target, path))
        fsThrow(code, function, path.text().c_str());
}

// Which of the two paths a refused renaming concerns.
[[noreturn]] void throw_renaming(outcome result, const char *function, const std::string &from,
                                 const std::string &to) {
    if (result == outcome::exists) fsThrow(fsErrFileExists, function, to.c_str());
    if (result == outcome::unsupported) refuse_place(function, to);  // below itself
    kel::system::status told;
    const int reason = Error_GetLast();
    const std::string host = without_end(btkHostPath(from.c_str()));
    const bool is_there = kel::system::look(here, host.c_str(), links::seen, told) == outcome::done;
    const fsErrorCode code = fsErrorFromLast(reason);
    Error_SetLast(reason);
    const bool concerns_target = is_there && code != fsErrNoPermission && code != fsErrInvalidPath;
    throw_last(function, concerns_target || reason == name_too_long ? to : from);
}

// The path of a sibling with that name.
std::string sibling(const std::string &path, std::string_view name) {
    const std::size_t separator = path.find_last_of('\\');
    if (separator != path.npos) return path.substr(0, separator + 1).append(name);
    const std::size_t drive = detail::drive_length(path);
    return drive ? path.substr(0, drive).append("\\").append(name) : std::string(name);
}

bool is_name(std::string_view name) noexcept {
    return !name.empty() && name != "." && name != ".." && name.find_first_of("/\\") == name.npos &&
           detail::drive_length(name) == 0 && name.find("::") == name.npos;
}

}  // namespace

void fsCreateDir(const char *path, fsOpMode mode) {
    constexpr const char *function = "fsCreateDir";
    constexpr unsigned everybody = 0777;
    const std::string checked = checked_path(path, function);
    if (is_recursive(mode)) {
        std::string culprit;
        if (const fsErrorCode code = make_folders(checked, true, culprit))
            fsThrow(code, function, culprit.c_str());
    } else if (kel::system::make_folder(here, btkHostPath(checked.c_str()).c_str(), everybody) !=
               outcome::done) {
        throw_last(function, checked);
    }
}

void fsRemove(const char *path, fsOpMode mode) {
    remove(path, mode, nullptr);
}

void kel::remove_tree(const char *path, fsOpMode mode, const file_observer &observer) {
    remove(path, mode, &observer);
}

void fsMove(const char *from, const char *to, fsOpMode mode) {
    constexpr const char *function = "fsMove";
    const std::string source = checked_path(from, function), target = checked_path(to, function);
    if (is_root(source)) refuse_place(function, source);
    const std::string from_host = without_end(btkHostPath(source.c_str()));
    const std::string to_host = without_end(btkHostPath(target.c_str()));
    kel::system::status told;
    if (kel::system::look(here, from_host.c_str(), links::seen, told) != outcome::done)
        throw_last(function, source);
    std::string culprit;
    if (is_recursive(mode))
        if (const fsErrorCode code = make_folders(target, false, culprit))
            fsThrow(code, function, culprit.c_str());
    const outcome result = kel::system::rename_new(here, from_host.c_str(), here, to_host.c_str());
    if (result == outcome::elsewhere)
        move_elsewhere(source, target, function);
    else if (result != outcome::done)
        throw_renaming(result, function, source, target);
}

void fsRename(const char *path, const char *new_name) {
    constexpr const char *function = "fsRename";
    std::string checked = checked_path(path, function);
    const std::string_view name = detail::any_view(new_name);
    if (!is_name(name)) fsThrow(fsErrInvalidName, function, new_name);
    if (is_root(checked)) refuse_place(function, checked);
    checked.resize(checked.find_last_not_of('\\') + 1);
    const std::string target = sibling(checked, name);
    if (target.size() > fsMaxPath) detail::throw_invalid_path(function, target);
    const std::string from_host = btkHostPath(checked.c_str()), to_host = btkHostPath(target.c_str());
    const outcome result = kel::system::rename_new(here, from_host.c_str(), here, to_host.c_str());
    if (result != outcome::done) throw_renaming(result, function, checked, target);
}

void fsCopy(const char *from, const char *to, fsRecursiveCopyMode copy_mode, fsSoftLinkCopyMode link_mode,
            fsOpMode mode) {
    copy(from, to, copy_mode, link_mode, mode, nullptr);
}

void kel::copy_tree(const char *from, const char *to, fsRecursiveCopyMode copy_mode,
                    fsSoftLinkCopyMode link_mode, fsOpMode mode, const file_observer &observer) {
    copy(from, to, copy_mode, link_mode, mode, &observer);
}

xstring fsReadLink(const char *path) {
    constexpr const char *function = "fsReadLink";
    fsThrow(fsErrLinksNotSupported, function, checked_path(path, function).c_str());
}

void fsCreateSoftLink(const char *target, const char *link, fsOpMode) {
    constexpr const char *function = "fsCreateSoftLink";
    checked_path(target, function);
    checked_path(link, function);
    fsThrow(fsErrLinksNotSupported, function, xstrNullStr);
}
