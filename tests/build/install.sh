#!/bin/bash
# install.sh BUILD OUTSIDE README CC CXX STATIC [FLAG...]: installs the build into an empty folder as the README says,
# moves that folder, and builds against it the programs in OUTSIDE (C++) and OUTSIDE/c (C), through find_package and
# through pkg-config, and that of the README, whose pieces lie in the folder README, as that says. Then the library's own
# surface: its SONAME, what it needs, and what it exports.
set -euo pipefail
build=$1 outside=$2 readme=$3 cc=$4 cxx=$5 static=$6
shift 6
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
    grep -q "^ExecStart=$work/kelstdmt/bin/$daemon --foreground " "$unit" || fail "the unit starts: $(grep Exec "$unit")"
    # The tree was moved, so its manual pages are not where man looks for them.
    if command -v systemd-analyze >/dev/null; then
        sed -i "s|$work/kelstdmt|$prefix|" "$unit"
        systemd-analyze --man=no verify "$unit" || fail "systemd does not take the unit of $daemon"
    fi
done

# A bare machine may have ninja alone.
! command -v ninja >/dev/null || export CMAKE_GENERATOR=Ninja
# A static library needs the C++ linker, which CMake does not know in a project that is all C.
projects=("$outside")
[[ $static == ON ]] || projects+=("$outside/c")
for project in "${projects[@]}"; do
    rm -rf "$work/outside"
    cmake -S "$project" -B "$work/outside" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" \
        -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_C_FLAGS="$*" -DCMAKE_CXX_FLAGS="$*" --no-warn-unused-cli \
        >"$work/log" 2>&1 && cmake --build "$work/outside" >>"$work/log" 2>&1 ||
        fail "find_package: $(cat "$work/log")"
    "$work/outside/outside" || fail "$project, built through find_package, fails"
    [[ ! -e $work/outside/names ]] || "$work/outside/names" || fail "a name server, built through find_package, fails"
done

# The README's program, where the README puts the tree.
ln -s "$prefix" "$work/kelstdmt"
mkdir "$work/readme"
cp "$readme/readme.cpp" "$work/readme/first.cpp"
(echo "cmake_minimum_required(VERSION 3.22)"$'\n'"project(readme CXX)" && cat "$readme/readme.cmake") \
    >"$work/readme/CMakeLists.txt"
HOME=$work cmake -S "$work/readme" -B "$work/readme/build" -DCMAKE_PREFIX_PATH="$work/kelstdmt" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$*" >"$work/log" 2>&1 &&
    cmake --build "$work/readme/build" >>"$work/log" 2>&1 || fail "the README's CMake: $(cat "$work/log")"
"$work/readme/build/first" | diff "$readme/readme.cpp.text" - || fail "the README's program, built by its CMake"

if command -v pkg-config >/dev/null; then
    (cd "$work/readme" && sed "s|^g++|'$cxx' $*|" "$readme/first.sh" | HOME=$work sh -e && ./first) |
        diff "$readme/readme.cpp.text" - || fail "the README's program, built by its command"
    export PKG_CONFIG_PATH=$libdir/pkgconfig LD_LIBRARY_PATH=$libdir
    "$cxx" "$@" -std=c++20 "$outside/main.cpp" -o "$work/program" $(pkg-config --cflags --libs kelstdmt)
    "$work/program" || fail "the C++ program built through pkg-config fails"
    "$cxx" "$@" -std=c++20 "$outside/names.cpp" -o "$work/program" $(pkg-config --cflags --libs kelstdmt-nameserver)
    "$work/program" || fail "the program with a name server built through pkg-config fails"
    "$cc" "$@" -std=c11 "$outside/c/main.c" -o "$work/program" $(pkg-config --cflags --libs kelstdmt)
    "$work/program" || fail "the C program built through pkg-config fails"
fi

[[ $static != ON ]] || exit 0
library=$libdir/libkelstdmt.so
dynamic=$(LC_ALL=C readelf -d "$library")
grep -q 'soname: \[libkelstdmt.so.0\]' <<<"$dynamic" || fail "SONAME is not libkelstdmt.so.0"
foreign=$(sed -n 's/.*Shared library: \[\(.*\)\]/\1/p' <<<"$dynamic" |
    grep -vE '^(libstdc\+\+|libm|libgcc_s|libc|ld-linux.*)\.so\.[0-9]+$' || true)
[[ -z $foreign ]] || fail "the library needs more than the standard libraries: $foreign"
strange=$(nm -D --defined-only -C "$library" | grep -E ' (testing|benchmark)::|LLVMFuzzer|\(anonymous namespace\)' || true)
[[ -z $strange ]] || fail "exported but not meant to be: $strange"

# Every function of the C header, by its plain name.
wanted=$(echo '#include <kelstdmt/kelstdmt_c.h>' | "$cc" "$@" -std=c11 -E -P -x c -I"$prefix/include" - |
    grep -oE '\bx[a-z_]+\(' | tr -d '(' | sort -u)
[[ $(wc -l <<<"$wanted") -gt 80 ]] || fail "hardly any functions found in kelstdmt_c.h: $wanted"
missing=$(comm -23 <(echo "$wanted") <(nm -D --defined-only "$library" | sed 's/.* //' | sort -u))
[[ -z $missing ]] || fail "declared in kelstdmt_c.h but not exported: $missing"
