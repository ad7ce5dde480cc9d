// The file library: paths, nodes, listings, copies and removals, on the files of the host.
//
// Paths are in the callers' form: separators are backslashes on the way out and either slash on the way in,
// "C:\a\b", "\a\b" and "/a/b" are one file. A path holds at most 259 bytes; a longer one, also one that a
// recursion arrives at, is "Invalid path". Names are bytes, used with case. A name that holds a backslash on
// the host cannot be told in this form: whoever meets one raises "Invalid file name" with that path. A name
// that holds "::" is told, but a path with it is taken for one on another host: of what works on files,
// only fsChangeDir and the fsh queries take it.
//
// Failures are thrown as fsXException and its subclasses: they carry the path concerned and name the function
// that was called. No function keeps state, so threads may call them at the same time; the current folder and
// the environment that fsGetHomeDir reads belong to the process.
#pragma once

#include <kelstdmt/filelib_exceptions.h>
#include <kelstdmt/filelib_nodes.h>
#include <kelstdmt/filelib_paths.h>
#include <kelstdmt/filelib_trees.h>
