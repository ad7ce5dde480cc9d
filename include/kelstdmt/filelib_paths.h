// Arithmetic on paths, and the folders that the process stands in.
//
// A path is absolute when it begins with a forward slash, or with a letter, a colon and either slash. One
// that begins with a backslash is not. "HOST::PATH" is a path on another host. Answers have backslashes.
//
// A result longer than fsMaxPath throws fsXInvalidPath. Where nothing else is said, a null pointer and the
// text markers give the null string in arithmetic, and are an fsXInvalidPath without a path elsewhere.
#pragma once

#include <kelstdmt/export.h>
#include <kelstdmt/xbasic.h>
#include <kelstdmt/xstring.h>

constexpr int fsMaxPath = 259;  // bytes, without the terminator

KELSTDMT_API bool fsIsPathAbsolute(const char *path);  // false for no text
// head, a backslash and tail. A tail that is absolute or on another host, and no text, is an fsXInvalidPath.
KELSTDMT_API xstring fsCatPaths(const char *head, const char *tail);
// Without an address the path as it is. No path, and one that has an address already, are an fsXInvalidPath,
// and so is an address that could not be taken off again, since it holds "::" or ends in a colon.
KELSTDMT_API xstring fsMkRemPath(const char *address, const char *path);
KELSTDMT_API xstring fsGetAddress(const char *path);    // the null string when the path has none
KELSTDMT_API xstring fsGetLocalPath(const char *path);  // the path as it is when it has no address
KELSTDMT_API xstring fsPathToNative(const char *path);

// A path in two at its last separator (head path, tail entry) or its first (head entry, tail path). A root,
// "\" or "X:\", keeps its separator. Without a separator the entries are the whole path, and the paths the
// null string, as is a tail with nothing in it; a path that is empty or a drive alone gives the null string.
// A path on another host throws fsXInvalidPath.
KELSTDMT_API xstring fsGetHeadPath(const char *path);
KELSTDMT_API xstring fsGetHeadEntry(const char *path);
KELSTDMT_API xstring fsGetTailPath(const char *path);
KELSTDMT_API xstring fsGetTailEntry(const char *path);
// The two cuts of the four above; separator points into path, any other pointer gives the null string.
KELSTDMT_API xstring fsSeparatePathHead(const char *path, const char *separator);
KELSTDMT_API xstring fsSeparatePathTail(const char *path, const char *separator);

// The components that both begin with, compared byte by byte; the null string when there are none. Paths that
// are empty, a drive alone or on another host are an fsXInvalidPath.
KELSTDMT_API xstring fsIntersectPaths(const char *a, const char *b);

// The existing paths that match a path with wildcards in any component: `*` is any run of bytes, `?` one
// byte, all else itself, with case. Folder by folder in the order of the file system; components without
// wildcards stay as they are written; a name such as "a:b" in the current folder is told as ".\a:b". A
// pattern that ends in a separator gives folders alone, without it. What is written out in front of a
// wildcard and exists must be a folder; a folder that cannot be listed throws, and a match that cannot be
// told (a backslash in its name, too long) throws fsXInvalidName, fsXInvalidPath.
KELSTDMT_API xrchandle<xstringsequence> fsExpandPattern(const char *pattern);

// HOMEDRIVE (at most 3 bytes) and HOMEPATH (at most 255) when either is set; one that is missing, empty or
// too long is an fsXOther then. Otherwise HOME if that is absolute, else the home in the user database. Not
// while another thread changes the environment.
KELSTDMT_API xstring fsGetHomeDir();
// Absolute. What cannot be told in a path throws without one: fsXInvalidPath for too long, fsXInvalidName for
// a backslash in a name.
KELSTDMT_API xstring fsGetCurDir();
KELSTDMT_API void fsChangeDir(const char *path);  // of the whole process
