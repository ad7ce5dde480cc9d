#!/bin/bash
# install.sh BUILD OUTSIDE README CC CXX STATIC [FLAG...]: installs the build into an empty folder as the README says,
# moves that folder, and builds against it the program of the README, whose pieces lie in the folder README, in both ways
# that it shows, the program with a name server in OUTSIDE through find_package, and one in C through pkg-config. Then the
# library's SONAME, and what it needs.
set -euo pipefail
build=$1 outside=$2 readme=$3 cc=$4 cxx=$5 static=$6
shift 6
flags=$*
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$*"; exit 1; }

sed -n "/--install/s|build/release|'$build'|p" "$readme/readme.sh" | HOME=$work sh -e >/dev/null
prefix=$work/prefix
mv "$work/kelstdmt" "$prefix"
libdir=$(dirname "$(find "$prefix" -name 'libkelstdmt.*' ! -path '*/share/*' -print -quit)")

stray=$(cd "$prefix" && find . -type f ! -path './include/kelstdmt/*.h' ! -name 'libkelstdmt.*' \
    ! -path '*/cmake/kelstdmt/kelstdmt*.cmake' ! -path '*/pkgconfig/kelstdmt*.pc' \
    ! -name 'libkelstdmt_nameserver.*' ! -path './bin/kel*d' ! -path './lib/systemd/system/kel*d.service' \
    ! -path './share/gdb/auto-load/*/libkelstdmt.so.*-gdb.py' ! -path ./share/kelstdmt/wireshark/kelstdmt.lua \
    ! -path ./bin/kel ! -path './share/bash-completion/completions/kel*' ! -path './share/man/man?/kel*.?')
[[ -z $stray ]] || fail "installed but not foreseen: $stray"

# The program finds the library where the tree lies now, and so does bash its completion.
if [[ -e $prefix/bin/kel ]]; then
    "$prefix/bin/kel" --version >/dev/null || fail "the installed kel does not run"
    cmp "$prefix/share/bash-completion/completions/kel" <("$prefix/bin/kel" completion bash) ||
        fail "the installed completion is not what kel prints"
fi
for daemon in kelnmsd kelrshd; do
    [[ -e $prefix/bin/$daemon ]] || continue
    "$prefix/bin/$daemon" --version >/dev/null || fail "the installed $daemon does not run"
    unit=$prefix/lib/systemd/system/$daemon.service
    grep -q "^ExecStart=$work/kelstdmt/bin/$daemon --foreground " "$unit" || fail "$unit starts something else"
    # The tree was moved, so its manual pages are not where man looks for them.
    if command -v systemd-analyze >/dev/null; then
        sed -i "s|$work/kelstdmt|$prefix|" "$unit"
        systemd-analyze --man=no verify "$unit" || fail "systemd does not take the unit of $daemon"
    fi
done

# A bare machine may have ninja alone.
! command -v ninja >/dev/null || export CMAKE_GENERATOR=Ninja
in_cmake() {
    cmake -S "$1" -B "$1/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$flags" \
        >"$work/log" 2>&1 && cmake --build "$1/build" >>"$work/log" 2>&1 || fail "find_package: $(cat "$work/log")"
}
cp -r "$outside" "$work/outside"
in_cmake "$work/outside"
"$work/outside/build/outside" || fail "the program with a name server, built through find_package, fails"

# The README's program, where the README puts the tree.
ln -s "$prefix" "$work/kelstdmt"
mkdir "$work/readme"
cp "$readme/readme.cpp" "$work/readme/first.cpp"
(echo "cmake_minimum_required(VERSION 3.22)"$'\n'"project(readme CXX)" && cat "$readme/readme.cmake") \
    >"$work/readme/CMakeLists.txt"
in_cmake "$work/readme"
"$work/readme/build/first" | diff "$readme/readme.cpp.text" - || fail "the README's program, built by its CMake"

if command -v pkg-config >/dev/null; then
    (cd "$work/readme" && sed "s|^g++|'$cxx' $*|" "$readme/first.sh" | HOME=$work sh -e && ./first) |
        diff "$readme/readme.cpp.text" - || fail "the README's program, built by its command"
    export PKG_CONFIG_PATH=$libdir/pkgconfig LD_LIBRARY_PATH=$libdir
    echo '#include <kelstdmt/kelstdmt_c.h>'$'\n''int main(void) { xrcrelease_c(xstringsequence_create()); return 0; }' |
        "$cc" "$@" -std=c11 -x c - -o "$work/program" $(pkg-config --cflags --libs kelstdmt)
    "$work/program" || fail "the C program built through pkg-config fails"
fi

[[ $static != ON ]] || exit 0
library=$libdir/libkelstdmt.so
dynamic=$(LC_ALL=C readelf -d "$library")
grep -q 'soname: \[libkelstdmt.so.0\]' <<<"$dynamic" || fail "SONAME is not libkelstdmt.so.0"
foreign=$(sed -n 's/.*Shared library: \[\(.*\)\]/\1/p' <<<"$dynamic" |
    grep -vE '^(libstdc\+\+|libm|libgcc_s|libc|ld-linux.*)\.so\.[0-9]+$' || true)
[[ -z $foreign ]] || fail "the library needs more than the standard libraries: $foreign"
