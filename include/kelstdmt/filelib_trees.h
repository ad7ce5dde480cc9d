// Operations on nodes and whole trees: making, removing, moving, copying.
//
// Links of the host are invisible to queries but never followed by what removes or replaces: a removal that
// meets a link removes the link, and a folder that becomes a link while the work goes on is not entered.
//
// The first failure ends an operation and is thrown with the path that it concerns, which may be one deep in
// the tree. A name with a backslash in it is fsXInvalidName, a path above fsMaxPath bytes fsXInvalidPath. Any
// number of threads may be at work, also on one tree.
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

// With fsRecursive also the folders that are missing above it, and a folder that exists is no failure.
KELSTDMT_API void fsCreateDir(const char *path, fsOpMode mode);

// A file, a link or an empty folder; with fsRecursive a folder with everything in it. A folder that another
// file system is mounted on, and a drive's root, are fsXInvalidPath, and nothing in them goes.
KELSTDMT_API void fsRemove(const char *path, fsOpMode mode);

// Never onto something that exists: fsXFileExists. With fsRecursive the folders missing above `to` are made.
// To another file system, a copy with owners and attributes is put into place and onto the disk, then the
// source is removed. What is added or changed meanwhile, or cannot be removed, stays there and is a failure;
// the copy is whole all the same.
KELSTDMT_API void fsMove(const char *from, const char *to, fsOpMode mode);

// In the same folder. new_name is a name, not a path: otherwise fsXInvalidName. A path without a separator
// but with a drive gets the new name in the drive's root.
KELSTDMT_API void fsRename(const char *path, const char *new_name);

// Copies content, permissions (but no rights that a program lends) and times of modification; holes stay.
//
// from: a file or a folder; a link leads to one. A missing one is fsXInvalidPath, any other kind, here or in
//     the tree, fsXOther.
// to: made with the folders missing above it when from is a folder or the mode is fsRecursive.
// copy_mode: an existing `to` is fsXFileExists with fsForceNew. fsReplace puts the copy in its place once
//     that is whole, then removes what was there; if it cannot, what is left of it comes back instead of the
//     copy. fsMerge copies into an existing folder, where files and links give way to files; a folder and
//     anything else in one place are fsXFileExists, and so is a device.
// link_mode: of links below from. fsNewLink makes the same link, fsExpand copies what it leads to (nothing:
//     fsXDoesNotExist, round in a circle: fsXInvalidPath), fsIgnore passes it by.
//
// A file, or a folder that is new at its place, appears there when it is whole and not at all after a
// failure. Until then a folder is a hidden one beside it, ".NAME.kel-copy"; the next copy to the same place
// clears up after a process that was killed. A copy onto or into itself is fsXInvalidPath.
KELSTDMT_API void fsCopy(const char *from, const char *to, fsRecursiveCopyMode copy_mode,
                         fsSoftLinkCopyMode link_mode, fsOpMode mode);

// Links are not supported: both always throw.
KELSTDMT_API xstring fsReadLink(const char *path);
KELSTDMT_API void fsCreateSoftLink(const char *target, const char *link, fsOpMode mode);

namespace kel {

// As fsCopy and fsRemove, and tells how far they are: the path is the source's, and what is removed has no
// bytes. An observer that throws ends a copy so that nothing new is left of it, except what a merge has
// finished; at its last call all is done.
KELSTDMT_API void copy_tree(const char *from, const char *to, fsRecursiveCopyMode copy_mode,
                            fsSoftLinkCopyMode link_mode, fsOpMode mode, const file_observer &observer);
KELSTDMT_API void remove_tree(const char *path, fsOpMode mode, const file_observer &observer);

}  // namespace kel
