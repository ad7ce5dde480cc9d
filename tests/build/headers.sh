#!/bin/bash
# headers.sh INCLUDE CC CXX [FLAG...]: every public header compiles alone, with all warnings, and so does each
# *_c.h as C11.
include=$1 cc=$2 cxx=$3
shift 3
export include
one() {
    local header=${@: -1}
    printf '#include <%s>\n' "$header" | "${@:1:$#-1}" -fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Wconversion \
        -Werror -I"$include" - || { echo "$header does not compile alone"; return 1; }
}
export -f one
cd "$include" || exit 1
status=0
find . -name '*.h' -printf '%P\n' | sort |
    xargs -n 1 -P "$(nproc)" bash -c 'one "$@"' one "$cxx" "$@" -std=c++20 -x c++ || status=1
find . -name '*_c.h' -printf '%P\n' | sort |
    xargs -r -n 1 -P "$(nproc)" bash -c 'one "$@"' one "$cc" "$@" -std=c11 -x c -Wstrict-prototypes -Wc++-compat ||
    status=1
exit $status
