#!/bin/sh
# prints.sh PROGRAM [EXPECTED [ARGUMENT...]]: the program, run with the arguments, must end with 0 and print
# exactly the file EXPECTED, unless that is -.
program=$1
expected=${2:--}
shift
[ $# -eq 0 ] || shift
if [ "$expected" = - ]; then
    exec "$program" "$@"
fi
output=$(mktemp)
trap 'rm -f "$output"' EXIT
"$program" "$@" >"$output" || { echo "$program ended with $?"; exit 1; }
diff -u "$expected" "$output"
