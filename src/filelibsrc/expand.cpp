// Wildcards in paths. The pattern is worked off from left to right, each step for all the paths that the
// steps before have found, so that one listing is open at a time however many components have wildcards.
#include <vector>

#include <kelstdmt/filelib_paths.h>

#include "filelibsrc/path_checks.h"
#include "filelibsrc/wildcard.h"
#include "runtime/directory.h"
#include "runtime/nodes.h"

namespace detail = kel::detail;
namespace host = kel::system;

namespace {

constexpr const char *function = "fsExpandPattern";
constexpr int no_such_file = 2, no_such_folder = 3, no_folder = 267, circle_of_links = 1921;

using path_list = std::vector<std::string>;

// False when there is none.
bool query(const std::string &path, host::node &told) {
    if (host::query(btkHostPath(path.c_str()).c_str(), told)) return true;
    if (fsErrorFromLast(Error_GetLast()) == fsErrIOError) detail::throw_last(function, path);
    return false;
}
bool is_missing(const std::string &path) {
    host::node told;
    return !query(path, told);
}
bool is_no_folder(const std::string &path) {
    host::node told;
    return !query(path, told) || (told.mode & host::kind_bits) != host::folder_kind;
}

// Files, links that lead nowhere, and folders that vanish meanwhile have nothing below them.
bool has_nothing_below(int last_error) {
    return last_error == no_such_file || last_error == no_such_folder || last_error == no_folder ||
           last_error == circle_of_links;
}

class expansion {
public:
    explicit expansion(std::string root) { m_paths.push_back(std::move(root)); }

    const path_list &paths() const { return m_paths; }

    // Goes on with those that exist. One that is too long matters where all of it that fits exists.
    void descend(std::string_view components) {
        for (std::string &path : m_paths) {
            path = detail::joined(path, components);
            if (path.size() > fsMaxPath && !is_missing(path.substr(0, path.rfind('\\', fsMaxPath))))
                detail::throw_invalid_path(function, path);
        }
        std::erase_if(m_paths, is_missing);
    }

    // Only folders matter where the pattern goes on.
    void match(std::string_view component, bool only_folders) {
        path_list next;
        for (const std::string &path : m_paths)
            add_matches(path, component, only_folders, next);
        m_paths = std::move(next);
        m_matched = true;
    }

    void keep_folders() { std::erase_if(m_paths, is_no_folder); }

private:
    void add_matches(const std::string &path, std::string_view component, bool only_folders,
                     path_list &next) const {
        const std::string directory = path.empty() ? "." : path;
        detail::joined_path(directory, "*", function);
        host::directory listing;
        if (!listing.open(btkHostPath(directory.c_str()).c_str())) {
            // What the caller wrote out must be a folder; what wildcards met need not be one.
            if (m_matched && has_nothing_below(Error_GetLast())) return;
            detail::throw_last(function, directory);
        }
        host::directory_entry entry;
        host::listing_step step;
        while ((step = listing.next(entry)) == host::listing_step::entry) {
            bool is_leaf = entry.kind == host::entry_kind::file || entry.kind == host::entry_kind::other;
            if ((is_leaf && only_folders) || !detail::matches_wildcard(entry.view(), component)) continue;
            if (entry.view().find('\\') != std::string_view::npos)  // would be two names
                fsThrow(fsErrInvalidName, function, detail::joined(path, entry.view()).c_str());
            // A bare "a:b" would lead to another drive.
            const bool is_drive = path.empty() && detail::drive_length(entry.view()) > 0;
            next.push_back(detail::joined_path(is_drive ? "." : path, entry.view(), function));
        }
        if (step == host::listing_step::failed) detail::throw_last(function, directory);
    }

    path_list m_paths;
    bool m_matched = false;  // by a wildcard
};

}  // namespace

xrchandle<xstringsequence> fsExpandPattern(const char *pattern) {
    const std::string text = detail::checked_path(pattern, function);
    std::size_t at = detail::root_length(text);
    bool only_folders = text.size() > at && text.back() == '\\';
    expansion found(text.substr(0, at));
    while ((at = text.find_first_not_of('\\', at)) != text.npos && !found.paths().empty()) {
        std::size_t wildcard = std::min(text.find_first_of("*?", at), text.size());
        // The root of "C:*" has no separator behind it.
        std::size_t component = wildcard == text.size() ? wildcard : text.rfind('\\', wildcard) + 1;
        std::size_t end;
        if (component > at) {  // plain ones up to there, as they are written
            end = text.find_last_not_of('\\', component - 1) + 1;
            found.descend(std::string_view(text).substr(at, end - at));
        } else {
            end = std::min(text.find('\\', wildcard), text.size());
            found.match(std::string_view(text).substr(at, end - at), end < text.size());
        }
        at = end;
    }
    if (only_folders) found.keep_folders();
    xrchandle<xstringsequence> result = xstringsequence::create();
    for (const std::string &path : found.paths())
        result->append(xstring::FromBytes(path.data(), path.size()));
    return result;
}
