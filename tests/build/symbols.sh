#!/bin/bash
# symbols.sh LIBRARY LIST [--update]: what a shared library offers to programs is what stands in the list, so that no
# change of the binary interface goes unseen. With --update the list is written anew, for review.
library=$1 list=$2
offered() {
    nm -DC --defined-only "$library" | sed -E 's/^[0-9a-f]+ ([A-Za-z]) (.*)$/\2/' | grep -v '^std::' | LC_ALL=C sort -u
}
if [[ ${3:-} == --update ]]; then
    offered >"$list"
    exit
fi
diff --label "listed in $list" --label "offered by $library" -u0 "$list" <(offered) | grep -v '^@@' && {
    echo "A symbol that is gone breaks programs that were built before. When the change is meant:"
    echo "    $0 $library $list --update"
    exit 1
}
exit 0
