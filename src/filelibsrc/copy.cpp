// The walk over a tree that is copied, level by level with one open listing each. What a path says is used
// only at the top; below, everything goes by the descriptor of its folder.
#include "filelibsrc/copy.h"

#include <utility>

namespace kel::detail {

using system::entry_kind;
using system::links;
using system::outcome;

namespace {

constexpr int in_use = 32, not_supported = 50;

entry_kind kind_of(const system::status &told) noexcept {
    switch (told.kind()) {
        case system::file_kind:
            return entry_kind::file;
        case system::folder_kind:
            return entry_kind::folder;
        case system::link_kind:
            return entry_kind::link;
        default:
            return entry_kind::other;
    }
}

}  // namespace

tree_copy::tree_copy(std::string from, std::string to, fsSoftLinkCopyMode link_mode,
                     const file_observer *observer)
    : m_from(std::move(from)),
      m_to(to),
      m_top_to(std::move(to)),
      m_link_mode(link_mode),
      m_progress(observer) {
    if (!observer || !*observer) return;
    m_watcher = [this](long long bytes) {
        m_bytes += static_cast<double>(bytes);
        m_progress.tell(m_from.text().c_str(), m_files, m_bytes);
    };
}

fsErrorCode tree_copy::fail(fsErrorCode code, const tree_path &where) {
    m_culprit = where.text();
    return code;
}

// A FIFO or a device, which would have to be opened for reading.
fsErrorCode tree_copy::refuse_kind() {
    Error_SetLast(not_supported);
    return fail(m_from);
}

fsErrorCode tree_copy::refuse_circle(const std::string &where) {
    Error_SetLast(in_use);
    m_culprit = where;
    return fsErrInvalidPath;
}

// Entries ----------------------------------------------------------------------------------------

fsErrorCode tree_copy::copy_entry(const source &from, entry_kind kind, target to, std::size_t depth) {
    if (kind == entry_kind::untold) {
        system::status told;
        if (system::look(from.folder, from.name, from.way, told) != outcome::done) return fail(m_from);
        kind = kind_of(told);
    }
    switch (kind) {
        case entry_kind::file:
            return copy_file(from, to);
        case entry_kind::folder:
            return copy_folder(from, to, depth);
        case entry_kind::link:
            return copy_link(from, to, depth);
        default:
            return refuse_kind();
    }
}

fsErrorCode tree_copy::resolve(target &to, bool is_folder) {
    if (to.way != arrival::asked) return fsErrSuccess;
    system::status there;
    const outcome seen = system::look(to.folder, to.name, links::seen, there);
    if (seen == outcome::absent) {
        to.way = arrival::anew;
        return fsErrSuccess;
    }
    if (seen != outcome::done) return fail(m_to);
    const bool is_link = there.kind() == system::link_kind;
    if (is_folder) {
        // A link below the top would lead the copy into another tree.
        if (there.kind() != system::folder_kind) return fail(fsErrFileExists, m_from);
        to.way = arrival::merged;
        return fsErrSuccess;
    }
    if (is_link && system::look(to.folder, to.name, links::followed, there) != outcome::done) there.mode = 0;
    if (!is_link && there.kind() != system::file_kind) return fail(fsErrFileExists, m_to);
    if (there.kind() == system::folder_kind) return fail(fsErrFileExists, m_to);
    to.way = arrival::over;
    return fsErrSuccess;
}

fsErrorCode tree_copy::put(new_entry &made, arrival way) {
    const putting how = way == arrival::anew   ? putting::anew
                        : way == arrival::over ? putting::over
                                               : putting::instead;
    if (made.put(how) != outcome::done) return fail(m_to);
    return how == putting::instead ? made.remove_old(m_culprit) : fsErrSuccess;
}

// Files ------------------------------------------------------------------------------------------

fsErrorCode tree_copy::copy_file(const source &from, target to) {
    system::owned_descriptor opened;
    system::status told;
    const outcome result = system::open_source(from.folder, from.name, from.way, opened, told);
    if (result == outcome::absent) return fail(fsErrInvalidPath, m_from);
    if (result != outcome::done) return fail(m_from);
    if (to.way == arrival::in_fresh) {
        system::owned_descriptor file;
        if (system::make_file(to.folder, to.name, file) != outcome::done) return fail(m_to);
        if (const fsErrorCode code = fill_file(opened.get(), told, file.get())) return code;
        return system::close_written(std::move(file)) == outcome::done ? fsErrSuccess : fail(m_to);
    }
    if (const fsErrorCode code = resolve(to, false)) return code;
    for (const double files = m_files, bytes = m_bytes;; m_files = files, m_bytes = bytes) {
        new_entry made(to.folder, to.name, m_to.text());
        if (made.make_file(m_may_be_unnamed) != outcome::done) return fail(m_to);
        if (const fsErrorCode code = fill_file(opened.get(), told, made.descriptor())) return code;
        const bool is_kept = m_kept == system::keeping::owner;
        if (is_kept && system::settle(made.descriptor(), false) != outcome::done) return fail(m_to);
        const fsErrorCode code = put(made, to.way);
        if (!made.cannot_be_named()) return code;
        m_may_be_unnamed = false;
    }
}

fsErrorCode tree_copy::fill_file(int from, const system::status &told, int to) {
    using side = system::content_copier::side;
    switch (m_copier.copy(from, told, to, m_watcher ? &m_watcher : nullptr)) {
        case side::source:
            return fail(m_from);
        case side::target:
            return fail(m_to);
        case side::none:
            break;
    }
    if (system::finish(to, told, m_kept, from) != outcome::done) return fail(m_to);
    m_progress.tell(m_from.text().c_str(), ++m_files, m_bytes);
    return fsErrSuccess;
}

// Links ------------------------------------------------------------------------------------------

fsErrorCode tree_copy::copy_link(const source &from, target to, std::size_t depth) {
    if (m_link_mode == fsIgnore) return fsErrSuccess;
    if (m_link_mode != fsExpand) return copy_link_itself(from, to);
    system::status told;
    const outcome result = system::look(from.folder, from.name, links::followed, told);
    if (result == outcome::absent) return fail(fsErrDoesNotExist, m_from);
    if (result != outcome::done) return fail(m_from);
    return copy_entry({from.folder, from.name, links::followed}, kind_of(told), to, depth);
}

fsErrorCode tree_copy::copy_link_itself(const source &from, target to) {
    std::string text;
    system::status told;
    if (system::read_link(from.folder, from.name, text) != outcome::done) return fail(m_from);
    if (const fsErrorCode code = resolve(to, false)) return code;
    const bool is_kept = m_kept == system::keeping::owner;
    if (is_kept && system::look(from.folder, from.name, links::seen, told) != outcome::done)
        return fail(m_from);
    if (to.way == arrival::in_fresh || to.way == arrival::anew) {
        if (system::make_link(text.c_str(), to.folder, to.name) != outcome::done) return fail(m_to);
        if (is_kept) system::finish_link(to.folder, to.name, told);
        return fsErrSuccess;
    }
    new_entry made(to.folder, to.name, m_to.text());
    if (made.make_link(text.c_str()) != outcome::done) return fail(m_to);
    return put(made, to.way);
}

// Folders ----------------------------------------------------------------------------------------

fsErrorCode tree_copy::open_level(const source &from, std::size_t depth) {
    while (m_levels.size() <= depth)
        m_levels.emplace_back();
    level &at = m_levels[depth];
    system::owned_descriptor folder;
    const outcome opened = system::open_folder(from.folder, from.name, from.way, folder);
    if (opened == outcome::absent) return fail(fsErrInvalidPath, m_from);
    if (opened != outcome::done || system::look(folder.get(), at.told) != outcome::done) return fail(m_from);
    for (std::size_t above = 0; above < depth; ++above)
        if (m_levels[above].told.who == at.told.who) return refuse_circle(m_from.text());
    if (at.told.who == m_top_folder) return refuse_circle(m_top_to);
    at.listing.take(std::move(folder));
    return fsErrSuccess;
}

fsErrorCode tree_copy::copy_folder(const source &from, target to, std::size_t depth) {
    if (const fsErrorCode code = open_level(from, depth)) return code;
    if (const fsErrorCode code = resolve(to, true)) return code;
    system::owned_descriptor folder;
    system::status told;
    if (to.way == arrival::in_fresh) {
        if (system::make_folder(to.folder, to.name, system::unfinished) != outcome::done ||
            system::open_folder(to.folder, to.name, links::seen, folder) != outcome::done)
            return fail(m_to);
        if (const fsErrorCode code = copy_entries(folder.get(), arrival::in_fresh, depth)) return code;
        return finish_folder(folder.get(), depth);
    }
    if (to.way == arrival::merged) {
        const links way = depth == 0 ? links::followed : links::seen;
        if (system::reach_folder(to.folder, to.name, way, folder) != outcome::done) return fail(m_to);
        if (depth == 0 && system::look(folder.get(), told) == outcome::done) m_top_folder = told.who;
        return copy_entries(folder.get(), arrival::asked, depth);
    }
    new_entry made(to.folder, to.name, m_to.text());
    if (made.make_folder() != outcome::done) return fail(m_to);
    if (depth == 0 && system::look(made.descriptor(), told) == outcome::done) m_top_folder = told.who;
    if (const fsErrorCode code = copy_entries(made.descriptor(), arrival::in_fresh, depth)) return code;
    if (const fsErrorCode code = finish_folder(made.descriptor(), depth)) return code;
    const bool is_kept = m_kept == system::keeping::owner;
    if (is_kept && system::settle(made.descriptor(), true) != outcome::done) return fail(m_to);
    return put(made, to.way);
}

fsErrorCode tree_copy::finish_folder(int to, std::size_t depth) {
    level &at = m_levels[depth];
    const outcome finished = system::finish(to, at.told, m_kept, at.listing.descriptor());
    at.listing.close();
    return finished == outcome::done ? fsErrSuccess : fail(m_to);
}

fsErrorCode tree_copy::copy_entries(int to, arrival way, std::size_t depth) {
    system::directory &listing = m_levels[depth].listing;
    const tree_path::mark from_before = m_from.here(), to_before = m_to.here();
    system::directory_entry entry;
    system::listing_step step;
    while ((step = listing.next(entry)) == system::listing_step::entry) {
        if (const fsErrorCode code = m_from.enter(entry.view())) return fail(code, m_from);
        if (const fsErrorCode code = m_to.enter(entry.view())) return fail(code, m_to);
        const source from{listing.descriptor(), entry.name, links::seen};
        if (const fsErrorCode code = copy_entry(from, entry.kind, {to, entry.name, way}, depth + 1))
            return code;
        m_from.back(from_before);
        m_to.back(to_before);
    }
    return step == system::listing_step::end ? fsErrSuccess : fail(m_from);
}

}  // namespace kel::detail
