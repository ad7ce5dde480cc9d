#!/bin/bash
# floors.sh ROOT: who may include whom. The floors stand in floors.txt beside this file. Besides:
#   - operating-system headers are included only in src/runtime/posix, and its headers only in src/runtime: what the
#     floors above need of the system is declared in a header of src/runtime/ and implemented in src/runtime/posix/;
#   - a public header includes only the standard library and other public headers;
#   - examples, tools and the like use the installed headers, never those of src.
here=$(cd "$(dirname "$0")" && pwd)
cd "$1" || exit 1
find include src nameserver tools examples \( -name '*.h' -o -name '*.cpp' -o -name '*.c' \) 2>/dev/null | sort |
    xargs -r -d '\n' grep -HE '^[[:space:]]*#[[:space:]]*include' |
    awk -v table="$here/floors.txt" '
function complain(text) { print file ": " text; bad = 1 }
function floor_of(path,    i) {
    for (i = 1; i <= rules; ++i)
        if (path ~ pattern[i]) return level[i]
    return -1
}
BEGIN {
    while ((getline line < table) > 0) {
        if (line ~ /^#/ || line == "") continue
        split(line, word, " ")
        level[++rules] = word[1]
        gsub(/[.]/, "[.]", word[2]); gsub(/[*]/, ".*", word[2]); gsub(/[+]/, "[+]", word[2])
        pattern[rules] = "^" word[2] "$"
    }
    split("cxxabi.h assert.h ctype.h errno.h float.h inttypes.h limits.h locale.h math.h setjmp.h stdalign.h stdarg.h " \
          "stdatomic.h stdbool.h stddef.h stdint.h stdio.h stdlib.h string.h time.h uchar.h wchar.h", names, " ")
    for (i in names) standard[names[i]] = 1
}
{
    file = $0; sub(/:.*/, "", file)
    name = $0; sub(/^[^<"]*[<"]/, "", name); sub(/[>"].*/, "", name)
    folder = file; sub(/[^\/]*$/, "", folder)
    public = file ~ /^include\//
    if (name !~ /[.\/]/ || name in standard) next  # those of C++ have neither a folder nor an ending
    if (name ~ /[.][.]\//) { complain("\"" name "\": write the path from src/"); next }
    if (name ~ /^kelstdmt\//) target = "include/" name
    else if ((getline line < (folder name)) >= 0) target = folder name
    else if ((getline line < ("src/" name)) >= 0) target = "src/" name
    else {
        if (file !~ /^(src\/runtime\/posix|examples|tools)\//) complain("<" name "> is neither ours nor of the standard library")
        next
    }
    own = floor_of(file); other = floor_of(target)
    if (own < 0) complain("has no floor; give it one in tests/build/floors.txt")
    if (other < 0) complain(target " has no floor; give it one in tests/build/floors.txt")
    if (other > own && own >= 0) complain("floor " own " includes " target " of floor " other)
    if (target ~ /^src\/runtime\/posix\// && file !~ /^src\/runtime\//) complain("includes the platform: " target)
    if (target ~ /^src\// && public) complain("a public header includes an internal one: " target)
    if (target ~ /^src\// && file ~ /^(examples|tools|nameserver)\//) complain("includes an internal header: " target)
}
END { exit bad }'
