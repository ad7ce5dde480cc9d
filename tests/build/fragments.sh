#!/bin/bash
# fragments.sh PRELUDE PAGE... -- COMPILER [FLAG...]: the pieces of C++ in the pages, which are no whole programs,
# compile behind PRELUDE, which declares what they leave to the reader.
prelude=$1
shift
for page; do
    shift
    [[ $page != -- ]] || break
    pages+=("$page")
done
{
    printf '#include "%s"\n' "$prelude"
    awk '/^```cpp$/ { inside = 1; printf "[[maybe_unused]] static auto piece%d = [] {\n#line %d \"%s\"\n", ++count, FNR + 1, FILENAME; next }
         /^```$/ && inside { inside = 0; print "};" }
         inside
         END { if (!count) print "#error the pages have no pieces of C++" }' "${pages[@]}"
} | "$@" -fsyntax-only -x c++ -
