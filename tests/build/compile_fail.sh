#!/bin/bash
# compile_fail.sh SOURCE COMPILER [FLAG...]: SOURCE must compile as it stands, and no more with any of the macros that
# it tests in a line `#ifdef MACRO  // expect: REGEX`; then the messages must match the regular expression. No such line
# may be without one.
source=$1
shift
"$@" -fsyntax-only "$source" || exit 1
status=0
while read -r macro _ expect expected; do
    if messages=$("$@" -fsyntax-only "-D$macro" "$source" 2>&1) || [[ $expect != expect: ]] ||
        ! grep -qE -- "$expected" <<<"$messages"; then
        printf "%s: expected an error that matches '%s', seen:\n%s\n" "$macro" "$expected" "$messages"
        status=1
    fi
done < <(sed -nE 's|^#ifn?def (.*)|\1|p' "$source" | grep . || echo none // expect: "a mistake in $source")
exit $status
