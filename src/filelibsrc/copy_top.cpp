// Where a copy begins: what the two paths name, what is in the way there, and what must not be copied at all.
#include "filelibsrc/copy.h"

namespace kel::detail {

using system::links;
using system::outcome;

namespace {

bool is_there(const std::string &host_path) {
    system::status told;
    return system::look(system::here, host_path.c_str(), links::seen, told) == outcome::done;
}

std::string folder_above(const std::string &host_path) {
    const std::size_t separator = host_path.find_last_of('/');
    if (separator == host_path.npos) return ".";
    return separator == 0 ? "/" : host_path.substr(0, separator);
}

// Whether the path, or what it would be made in, is the folder or stands below it.
bool leads_into(std::string host_path, const system::identity &folder) {
    system::owned_descriptor nearest;
    while (system::reach_folder(system::here, host_path.c_str(), links::followed, nearest) != outcome::done) {
        if (host_path == "/" || host_path == ".") return false;
        host_path = without_end(folder_above(host_path));
    }
    return system::stands_in(nearest.get(), folder);
}

// Whether two paths to one file are one entry, and not two names of it.
bool is_same_entry(const std::string &from_host, const place &to) {
    const std::string real = system::real_path(from_host.c_str());
    place entry;
    system::status one, other;
    return !real.empty() && entry.open(real) == outcome::done &&
           std::string_view(entry.name()) == to.name() &&
           system::look(entry.folder(), ".", links::seen, one) == outcome::done &&
           system::look(to.folder(), ".", links::seen, other) == outcome::done && one.who == other.who;
}

}  // namespace

fsErrorCode tree_copy::check_source(const std::string &host, fsRecursiveCopyMode mode,
                                    const std::string &to_host, system::status &told) {
    const outcome seen = system::look(system::here, host.c_str(), links::followed, told);
    if (seen != outcome::done) {
        const int reason = Error_GetLast();
        if (mode == fsForceNew && is_there(to_host)) return fail(fsErrFileExists, m_to);
        Error_SetLast(reason);
        const bool is_missing = seen == outcome::absent || seen == outcome::no_folder;
        return is_missing ? fail(fsErrInvalidPath, m_from) : fail(m_from);
    }
    return fsErrSuccess;
}

fsErrorCode tree_copy::choose_arrival(const place &to, fsRecursiveCopyMode mode, const std::string &from_host,
                                      const system::status &told, arrival &way) {
    system::status there, behind;
    const bool is_folder = told.kind() == system::folder_kind;
    const outcome seen = system::look(to.folder(), to.is_entry() ? to.name() : ".", links::seen, there);
    way = arrival::anew;
    if (seen == outcome::absent) return fsErrSuccess;
    if (seen != outcome::done) return fail(m_to);
    if (mode == fsForceNew) return fail(fsErrFileExists, m_to);
    const bool is_same = there.who == told.who;
    const bool becomes_file = !is_folder && there.kind() != system::folder_kind;
    if (is_same && (is_folder || there.names == 1 || is_same_entry(from_host, to)))
        return refuse_circle(m_top_to);
    if (mode == fsReplace) {
        const std::string real = system::real_path(from_host.c_str());
        if (real.empty()) return fail(m_from);
        const bool holds_source = there.kind() == system::folder_kind && leads_into(real, there.who);
        if (holds_source || !to.is_entry() || is_root(m_top_to)) return refuse_circle(m_top_to);
        way = becomes_file ? arrival::over : arrival::instead;
        return fsErrSuccess;
    }
    // The path of the caller may lead through a link to the folder that is meant.
    const bool leads_to_folder =
        there.kind() == system::folder_kind ||
        (system::look(to.folder(), to.name(), links::followed, behind) == outcome::done &&
         behind.kind() == system::folder_kind);
    if (is_folder && !leads_to_folder) return fail(fsErrFileExists, m_from);
    const bool gives_way = there.kind() == system::file_kind || there.kind() == system::link_kind;
    if (!is_folder && (leads_to_folder || !gives_way)) return fail(fsErrFileExists, m_to);
    way = is_folder ? arrival::merged : arrival::over;
    return fsErrSuccess;
}

fsErrorCode tree_copy::copy(fsRecursiveCopyMode mode, bool with_parents) {
    const std::string from = btkHostPath(m_from.text().c_str());
    const std::string to = without_end(btkHostPath(m_top_to.c_str()));
    system::status told;
    if (const fsErrorCode code = check_source(from, mode, to, told)) return code;
    const bool is_folder = told.kind() == system::folder_kind;
    if (!is_folder && told.kind() != system::file_kind) return refuse_kind();
    const bool is_refused = mode == fsForceNew && is_there(to);
    if (is_folder && !is_refused && leads_into(to, told.who)) return refuse_circle(m_top_to);
    if (with_parents || is_folder)
        if (const fsErrorCode code = make_folders(m_top_to, false, m_culprit)) return code;
    place target_place;
    if (target_place.open(to) != outcome::done) return fail(m_to);
    target where{target_place.folder(), target_place.name(), arrival::anew};
    if (const fsErrorCode code = choose_arrival(target_place, mode, from, told, where.way)) return code;
    const source what{system::here, from.c_str(), links::followed};
    if (const fsErrorCode code = is_folder ? copy_folder(what, where, 0) : copy_file(what, where))
        return code;
    m_progress.finish(m_from.text().c_str(), m_files, m_bytes);
    return fsErrSuccess;
}

fsErrorCode tree_copy::copy_to_move() {
    const std::string from = without_end(btkHostPath(m_from.text().c_str()));
    const std::string to = without_end(btkHostPath(m_top_to.c_str()));
    m_kept = system::keeping::owner;
    place target_place;
    if (target_place.open(to) != outcome::done) return fail(m_to);
    if (is_there(to)) return fail(fsErrFileExists, m_to);
    const source what{system::here, from.c_str(), links::seen};
    const target where{target_place.folder(), target_place.name(), arrival::anew};
    if (const fsErrorCode code = copy_entry(what, system::entry_kind::untold, where, 0)) return code;
    // Where the new name stands. Not every file system waits for a folder, nor may everybody open it.
    system::owned_descriptor folder;
    if (system::open_folder(target_place.folder(), ".", links::seen, folder) != outcome::done)
        return fsErrSuccess;
    const outcome settled = system::settle(folder.get(), false);
    return settled == outcome::done || settled == outcome::unsupported ? fsErrSuccess : fail(m_to);
}

}  // namespace kel::detail
