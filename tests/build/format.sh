#!/bin/bash
# format.sh ROOT: every C and C++ file of the project is as clang-format leaves it.
cd "$1" || exit 1
if ! command -v clang-format >/dev/null; then
    echo "clang-format is not installed"
    exit 77
fi
find include src tests bench fuzz examples tools nameserver \( -name '*.h' -o -name '*.cpp' -o -name '*.c' \) -print0 \
    2>/dev/null | xargs -0 -n 20 -P "$(nproc)" clang-format --dry-run -Werror
