#!/bin/bash
# compile_fail.sh SOURCE COMPILER [FLAG...]: SOURCE must not compile, and the messages must match the regular
# expression on its first line, `// expect: REGEX`. A source that asks for WITHOUT_MISTAKE must compile when that
# is defined, which shows that nothing else is wrong with it.
source=$1
shift
expected=$(sed -n '1s|^// expect: ||p' "$source")
if [[ -z $expected ]]; then
    echo "$source: the first line must be '// expect: REGEX'"
    exit 1
fi
if messages=$("$@" -fsyntax-only "$source" 2>&1); then
    echo "$source: expected an error that matches '$expected', but it compiles"
    exit 1
fi
if ! grep -qE -- "$expected" <<<"$messages"; then
    printf "%s: expected an error that matches '%s', seen:\n%s\n" "$source" "$expected" "$messages"
    exit 1
fi
if grep -q WITHOUT_MISTAKE "$source" && ! "$@" -fsyntax-only -DWITHOUT_MISTAKE "$source"; then
    echo "$source: does not compile without its mistake either"
    exit 1
fi
