// Operations on nodes and whole trees: making, removing, moving, copying.
//
// Links of the host are invisible to queries but never followed by what removes or replaces: a removal that
// meets a link removes the link, and a folder that becomes a link while the work goes on is not entered.
#pragma once

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/filelib_nodes.h>
#include <kelstdmt/xstring.h>

// An argument equal to the number of values is the first value of fsOpMode, fsMerge and fsNewLink.
enum fsOpMode : int { fsRecursive, fsSimple };
enum fsSoftLinkCopyMode : int { fsNewLink, fsExpand, fsIgnore };
enum fsRecursiveCopyMode : int { fsForceNew, fsMerge, fsReplace };
KEL_DECLARE_ENUM(fsOpMode)
KEL_DECLARE_ENUM(fsSoftLinkCopyMode)
KEL_DECLARE_ENUM(fsRecursiveCopyMode)

KELSTDMT_API void fsCreateDir(const char *path, fsOpMode mode);
KELSTDMT_API void fsRemove(const char *path, fsOpMode mode);
KELSTDMT_API void fsMove(const char *from, const char *to, fsOpMode mode);
KELSTDMT_API void fsRename(const char *path, const char *new_name);
KELSTDMT_API void fsCopy(const char *from, const char *to, fsRecursiveCopyMode copy_mode,
                         fsSoftLinkCopyMode link_mode, fsOpMode mode);

// Links are not supported: both always throw.
KELSTDMT_API xstring fsReadLink(const char *path);
KELSTDMT_API void fsCreateSoftLink(const char *target, const char *link, fsOpMode mode);

namespace kel {

// As fsCopy and fsRemove, and tells how far they are.
KELSTDMT_API void copy_tree(const char *from, const char *to, fsRecursiveCopyMode copy_mode,
                            fsSoftLinkCopyMode link_mode, fsOpMode mode, const file_observer &observer);
KELSTDMT_API void remove_tree(const char *path, fsOpMode mode, const file_observer &observer);

}  // namespace kel
