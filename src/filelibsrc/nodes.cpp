// What a node is: one question to the host, whose answer an fsNodeInfo keeps and the fsh functions pick from.
#include "runtime/nodes.h"

#include <kelstdmt/filelib_nodes.h>

#include "filelibsrc/path_checks.h"

using kel::detail::checked_path;
using kel::detail::normalise;
using kel::detail::throw_last;

namespace {

fsNodeType type_of(unsigned mode) noexcept {
    switch (mode & kel::system::kind_bits) {
        case kel::system::link_kind:
            return fsSoftLink;
        case kel::system::folder_kind:
            return fsDirectory;
        default:
            return fsFile;
    }
}

bool ask(const char *path, kel::system::node &told) {
    std::string normalised;
    return normalise(path, normalised) && kel::system::query(btkHostPath(normalised.c_str()).c_str(), told);
}

// As above; a node that cannot be asked is absent, unless that is for an I/O error.
bool is_there(const char *path, const char *function, kel::system::node &told) {
    if (ask(path, told)) return true;
    if (fsErrorFromLast(Error_GetLast()) == fsErrIOError) throw_last(function, path);
    return false;
}

bool is_of_type(const char *path, const char *function, fsNodeType type) {
    kel::system::node told;
    return is_there(path, function, told) && type_of(told.mode) == type;
}

tmTime *new_time(double seconds) {
    tmTime *time = kel::construct<tmTime>(0L);  // a long may be too short for the seconds
    time->setAbsTime(seconds);
    return time;
}

}  // namespace

bool fsNodeInfo::Initialize(const char *path) {
    kel::system::node told;
    m_initialized = ask(path, told);
    if (!m_initialized) return false;
    m_mode = told.mode;
    m_modified = static_cast<double>(told.modified);
    m_size = static_cast<double>(told.size);
    return true;
}

fsNodeType fsNodeInfo::getType() const {
    return type_of(m_mode);
}

tmTime *fsNodeInfo::getModTime() const {
    return new_time(m_modified);
}

double fsNodeInfo::getSize() const {
    return m_size;
}

xrchandle<fsNodeInfo> fsGetNodeInfo(const char *path) {
    const std::string checked = checked_path(path, "fsGetNodeInfo");
    xrchandle<fsNodeInfo> info(kel::construct<fsNodeInfo>());
    if (!info->Initialize(checked.c_str())) throw_last("fsGetNodeInfo", checked);
    return info;
}

tmTime *fshGetModTime(const char *path) {
    kel::system::node told;
    return is_there(path, "fshGetModTime", told) ? new_time(static_cast<double>(told.modified)) : nullptr;
}

double fshGetSize(const char *path) {
    kel::system::node told;
    return is_there(path, "fshGetSize", told) ? static_cast<double>(told.size) : kel::nil_real;
}

fsNodeType fshGetNodeType(const char *path) {
    kel::system::node told;
    return is_there(path, "fshGetNodeType", told) ? type_of(told.mode) : fsNoNode;
}

bool fshIsDirectory(const char *path) {
    return is_of_type(path, "fshIsDirectory", fsDirectory);
}

bool fshIsFile(const char *path) {
    return is_of_type(path, "fshIsFile", fsFile);
}

bool fshIsSoftLink(const char *path) {
    return is_of_type(path, "fshIsSoftLink", fsSoftLink);
}

bool fshExists(const char *path) {
    kel::system::node told;
    return is_there(path, "fshExists", told);
}
