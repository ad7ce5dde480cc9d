#!/bin/bash
# headers.sh INCLUDE CC CXX [FLAG...]: every public header compiles alone, with all warnings, and so does each
# *_c.h as C11.
cd "$1" || exit 1
cc=$2 cxx=$3
shift 3
flags=("$@" -fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -I. -include @)
alone() { find . -name "$1" -printf '%P\n' | xargs -I@ -P "$(nproc)" "${@:2}" /dev/null; }
alone '*.h' "$cxx" "${flags[@]}" -std=c++20 -x c++ &&
    alone '*_c.h' "$cc" "${flags[@]}" -std=c11 -Wstrict-prototypes -Wc++-compat -x c
