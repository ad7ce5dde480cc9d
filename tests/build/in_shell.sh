#!/bin/sh
# in_shell.sh SCRIPT FOLDER...: the script's output, and its errors, in an empty folder of its own, with the programs of
# the folders, settings that nobody else has, and a port for a name server. What it left running is ended.
script=$1
shift
for folder; do PATH=$folder:$PATH; done
HOME=$(mktemp -d)
cd "$HOME" || exit 1
export PATH HOME SHELL=/bin/sh XDG_RUNTIME_DIR="$HOME" KELSTDMT_REGISTRY="$HOME/registry" ORVNMSPORT=$((20000 + $$ % 10000))
trap 'for file in *.pid; do [ ! -f "$file" ] || kill "$(cat "$file")"; done; rm -rf "$HOME"' EXIT
# The superuser, who may run the tests, says that he knows what he does.
if [ "$(id -u)" = 0 ]; then
    mkdir bin
    printf '#!/bin/sh\nexec %s --allow-root "$@"\n' "$(command -v kelrshd)" >bin/kelrshd
    chmod +x bin/kelrshd
    PATH=$HOME/bin:$PATH
fi
sh -e "$script" 2>&1
