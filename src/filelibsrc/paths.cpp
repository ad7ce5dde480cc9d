// Path arithmetic: everything here looks at texts alone and never asks the host.
#include <kelstdmt/filelib_paths.h>

#include <algorithm>
#include <functional>

#include "filelibsrc/path_checks.h"

namespace detail = kel::detail;

namespace {

constexpr std::string_view host_mark = "::";

xstring text_of(std::string_view text) {
    return xstring::FromBytes(text.data(), text.size());
}

std::string_view given(const char *path, const char *function) {
    if (!kel::is_text(path)) fsThrow(fsErrInvalidPath, function, path);
    return path;
}

std::string with_backslashes(std::string text, const char *function) {
    std::replace(text.begin(), text.end(), '/', '\\');
    if (text.size() > fsMaxPath) detail::throw_invalid_path(function, text);
    return text;
}

// What the four functions below take apart.
struct cuttable {
    std::string path;
    bool is_nothing;  // null, empty or a drive alone

    cuttable(const char *given, const char *function) : path(detail::normalised_path(given, function)) {
        if (path.find(host_mark) != path.npos) fsThrow(fsErrInvalidPath, function, given);
        is_nothing = path.size() == detail::drive_length(path);
    }
};

// Before the separator at that index, or with it where it is the root's.
xstring cut_head(std::string_view path, std::size_t separator) {
    bool is_root = separator + 1 == detail::root_length(path);
    return text_of(path.substr(0, is_root ? separator + 1 : separator));
}

xstring cut_tail(std::string_view path, std::size_t separator) {
    std::string_view tail = path.substr(separator + 1);
    return tail.empty() ? xstring() : text_of(tail);
}

// The index of a pointer into the path; npos for any other.
std::size_t index_in(const char *path, const char *separator) {
    if (!kel::is_text(path) || !kel::is_text(separator)) return std::string::npos;
    const char *end = path + std::char_traits<char>::length(path);
    bool is_inside = !std::less<>()(separator, path) && std::less<>()(separator, end);
    return is_inside ? static_cast<std::size_t>(separator - path) : std::string::npos;
}

}  // namespace

bool fsIsPathAbsolute(const char *path) {
    std::string_view text = detail::any_view(path);
    std::size_t drive = detail::drive_length(text);
    if (drive == 0) return text.starts_with('/');
    return drive < text.size() && detail::is_separator(text[drive]);
}

xstring fsCatPaths(const char *head, const char *tail) {
    constexpr const char *function = "fsCatPaths";
    std::string_view left = given(head, function), right = given(tail, function);
    if (fsIsPathAbsolute(tail) || right.find(host_mark) != right.npos)
        fsThrow(fsErrInvalidPath, function, tail);
    return text_of(with_backslashes(std::string(left).append("\\").append(right), function));
}

// An address that holds the mark itself could not be taken off again.
xstring fsMkRemPath(const char *address, const char *path) {
    constexpr const char *function = "fsMkRemPath";
    if (!kel::is_text(address)) return kel::is_text(path) ? xstring(path) : xstring();
    std::string_view host = address, local = given(path, function);
    if (local.find(host_mark) != local.npos) fsThrow(fsErrInvalidPath, function, path);
    std::string remote = std::string(host).append(host_mark);
    if (remote.find(host_mark) != host.size()) fsThrow(fsErrInvalidPath, function, address);
    return text_of(with_backslashes(remote.append(local), function));
}

xstring fsGetAddress(const char *path) {
    std::string_view text = detail::any_view(path);
    std::size_t mark = text.find(host_mark);
    return mark == text.npos ? xstring() : text_of(text.substr(0, mark));
}

xstring fsGetLocalPath(const char *path) {
    if (!kel::is_text(path)) return {};
    std::string_view text = path;
    std::size_t mark = text.find(host_mark);
    if (mark == text.npos) return path;
    return text_of(detail::normalised_path(path + mark + host_mark.size(), "fsGetLocalPath"));
}

xstring fsPathToNative(const char *path) {
    if (!kel::is_text(path)) return {};
    return text_of(detail::normalised_path(path, "fsPathToNative"));
}

xstring fsGetHeadPath(const char *path) {
    cuttable source(path, "fsGetHeadPath");
    std::size_t separator = source.path.rfind('\\');
    return source.is_nothing || separator == source.path.npos ? xstring() : cut_head(source.path, separator);
}

xstring fsGetHeadEntry(const char *path) {
    cuttable source(path, "fsGetHeadEntry");
    if (source.is_nothing) return {};
    std::size_t separator = source.path.find('\\');
    return separator == source.path.npos ? text_of(source.path) : cut_head(source.path, separator);
}

xstring fsGetTailPath(const char *path) {
    cuttable source(path, "fsGetTailPath");
    std::size_t separator = source.path.find('\\');
    return source.is_nothing || separator == source.path.npos ? xstring() : cut_tail(source.path, separator);
}

xstring fsGetTailEntry(const char *path) {
    cuttable source(path, "fsGetTailEntry");
    if (source.is_nothing) return {};
    std::size_t separator = source.path.rfind('\\');
    return separator == source.path.npos ? text_of(source.path) : cut_tail(source.path, separator);
}

xstring fsSeparatePathHead(const char *path, const char *separator) {
    std::size_t at = index_in(path, separator);
    if (at == std::string::npos) return {};
    return cut_head(detail::normalised_path(path, "fsSeparatePathHead"), at);
}

xstring fsSeparatePathTail(const char *path, const char *separator) {
    std::size_t at = index_in(path, separator);
    if (at == std::string::npos) return {};
    return cut_tail(detail::normalised_path(path, "fsSeparatePathTail"), at);
}

xstring fsIntersectPaths(const char *a, const char *b) {
    const std::string left = detail::checked_path(a, "fsIntersectPaths");
    const std::string right = detail::checked_path(b, "fsIntersectPaths");
    auto ends_at = [](const std::string &path, std::size_t at) {
        return at == path.size() || path[at] == '\\';
    };
    std::size_t root = detail::root_length(left), shared = 0;
    if (root > 0 && left[root - 1] == '\\' && right.compare(0, root, left, 0, root) == 0) shared = root;
    for (std::size_t at = 0; at < left.size() && at < right.size() && left[at] == right[at];) {
        ++at;
        if (at > root && left[at - 1] != '\\' && ends_at(left, at) && ends_at(right, at)) shared = at;
    }
    return shared == 0 ? xstring() : text_of(left.substr(0, shared));
}
