#!/bin/sh
# make.sh HEADERS FOLDER: makes the reference of the headers as FOLDER's Doxyfile says. Fails when doxygen finds
# anything wrong, such as a header that groups.dox does not name.
set -e
headers=$1 folder=$2
for program in python3 doxygen; do
    command -v $program >/dev/null || { echo "No $program here, so no reference is made"; exit 77; }
done
python3 "$(dirname "$0")/headers.py" "$headers" "$folder/headers/kelstdmt"
found=$(doxygen "$folder/Doxyfile" 2>&1) || true
[ -z "$found" ] || { echo "$found"; exit 1; }
echo "$folder/reference/index.html"
