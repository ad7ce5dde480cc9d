// Arithmetic on paths, and the folders that the process stands in.
//
// A path is absolute when it begins with a forward slash, or with a letter, a colon and either slash. One
// that begins with a backslash is not. "HOST::PATH" is a path on another host.
#pragma once

#include <kelstdmt/export.h>
#include <kelstdmt/xbasic.h>
#include <kelstdmt/xstring.h>

constexpr int fsMaxPath = 259;  // bytes, without the terminator

KELSTDMT_API bool fsIsPathAbsolute(const char *path);
KELSTDMT_API xstring fsCatPaths(const char *head, const char *tail);
KELSTDMT_API xstring fsMkRemPath(const char *address, const char *path);
KELSTDMT_API xstring fsGetAddress(const char *path);
KELSTDMT_API xstring fsGetLocalPath(const char *path);
KELSTDMT_API xstring fsPathToNative(const char *path);
KELSTDMT_API xstring fsGetHeadPath(const char *path);
KELSTDMT_API xstring fsGetHeadEntry(const char *path);
KELSTDMT_API xstring fsGetTailPath(const char *path);
KELSTDMT_API xstring fsGetTailEntry(const char *path);
// The two cuts of the four above; separator points into path.
KELSTDMT_API xstring fsSeparatePathHead(const char *path, const char *separator);
KELSTDMT_API xstring fsSeparatePathTail(const char *path, const char *separator);
KELSTDMT_API xstring fsIntersectPaths(const char *a, const char *b);

// The existing paths that match a path with wildcards in any component, folder by folder in the order of the
// file system.
KELSTDMT_API xrchandle<xstringsequence> fsExpandPattern(const char *pattern);

KELSTDMT_API xstring fsGetHomeDir();
KELSTDMT_API xstring fsGetCurDir();
KELSTDMT_API void fsChangeDir(const char *path);
