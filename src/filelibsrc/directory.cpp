// Listings of folders: the names come out of the kernel's blocks, are matched there, and only those that are
// asked for become strings.
#include "runtime/directory.h"

#include <kelstdmt/filelib_nodes.h>

#include "filelibsrc/path_checks.h"
#include "filelibsrc/wildcard.h"

using kel::detail::any_view;
using kel::detail::checked_path;
using kel::detail::joined;
using kel::detail::matches_wildcard;
using kel::detail::throw_last;
using kel::system::directory_entry;
using kel::system::listing_step;

namespace {

constexpr int wrong_handle = 6, no_more_names = 18, wrong_name = 123, name_too_long = 206;
constexpr std::string_view every_name = "*";

// The path is normalised; it names the entries joined with a star.
bool open_listing(const std::string &directory, kel::system::directory &listing) {
    if (joined(directory, every_name).size() > fsMaxPath) {
        Error_SetLast(name_too_long);
        return false;
    }
    return listing.open(btkHostPath(directory.c_str()).c_str());
}

listing_step next_matching(kel::system::directory &listing, std::string_view pattern,
                           directory_entry &entry) {
    for (;;) {
        const listing_step step = listing.next(entry);
        if (step != listing_step::entry || matches_wildcard(entry.view(), pattern)) return step;
    }
}

// In a path of the callers it would be two names.
bool can_be_told(std::string_view name) noexcept {
    return name.find('\\') == name.npos;
}

fsIOStatus answer(listing_step step, const directory_entry &entry, xstring &name) {
    if (step == listing_step::failed) return fsIOFailed;
    if (step == listing_step::end) {
        Error_SetLast(no_more_names);
        return fsIOEnd;
    }
    name = xstring::FromBytes(entry.name, entry.size);
    if (can_be_told(entry.view())) return fsIODone;
    Error_SetLast(wrong_name);
    return fsIOFailed;
}

}  // namespace

struct fsiDir::listing {
    kel::system::directory names;
};

fsiDir::fsiDir() = default;

fsiDir::~fsiDir() = default;

bool fsiDir::Open(const char *directory) {
    m_listing.reset();
    std::string normalised;
    if (!kel::detail::normalise(directory, normalised)) return false;
    auto fresh = std::make_unique<listing>();
    if (!open_listing(normalised, fresh->names)) return false;
    m_listing = std::move(fresh);
    return true;
}

fsIOStatus fsiDir::Read(xstring &name) {
    return ReadNextMatching(every_name.data(), strShell, name);
}

fsIOStatus fsiDir::ReadNextMatching(const char *pattern, strMatchMode, xstring &name) {
    if (!m_listing) {
        Error_SetLast(wrong_handle);
        return fsIOFailed;
    }
    const std::string_view wanted = any_view(pattern);
    directory_entry entry;
    const listing_step step =
        wanted.empty() ? listing_step::end : next_matching(m_listing->names, wanted, entry);
    return answer(step, entry, name);
}

bool fsiDir::Close() {
    if (!m_listing) Error_SetLast(wrong_handle);
    const bool was_open = m_listing != nullptr;
    m_listing.reset();
    return was_open;
}

xrchandle<xstringsequence> fsListDirectory(const char *directory, const char *pattern, strMatchMode) {
    constexpr const char *function = "fsListDirectory";
    const std::string checked = checked_path(directory, function);
    const std::string_view wanted = kel::is_nil(pattern) ? every_name : any_view(pattern);
    kel::system::directory listing;
    if (!open_listing(checked, listing)) throw_last(function, checked);
    xrchandle<xstringsequence> names(xstringsequence::create());
    directory_entry entry;
    while (!wanted.empty()) {
        const listing_step step = next_matching(listing, wanted, entry);
        if (step == listing_step::failed) throw_last(function, checked);
        if (step == listing_step::end) break;
        if (!can_be_told(entry.view()))
            fsThrow(fsErrInvalidName, function, joined(checked, entry.view()).c_str());
        names->append(xstring::FromBytes(entry.name, entry.size));
    }
    return names;
}
