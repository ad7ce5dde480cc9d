#!/bin/sh
# prints.sh PROGRAM [EXPECTED]: the program must end with 0 and print exactly the file EXPECTED.
if [ -z "$2" ]; then
    exec "$1"
fi
output=$(mktemp)
trap 'rm -f "$output"' EXIT
"$1" >"$output" || { echo "$1 ended with $?"; exit 1; }
diff -u "$2" "$output"
