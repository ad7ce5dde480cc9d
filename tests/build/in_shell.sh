#!/bin/sh
# in_shell.sh SCRIPT FOLDER...: the script's output, and its errors, in an empty folder of its own, with the programs of
# the folders, settings that nobody else has, and a port for a name server. What it left running is ended.
script=$1
shift
for folder; do PATH=$folder:$PATH; done
# A port that nobody has, below those that the system gives to clients.
port=$((20000 + $(od -An -N2 -tu2 /dev/urandom) % 10000))
while grep -q "$(printf ':%04X ' $port)" /proc/net/tcp*; do port=$((port + 1)); done
HOME=$(mktemp -d)
cd "$HOME" || exit 1
export PATH HOME SHELL=/bin/sh XDG_RUNTIME_DIR="$HOME" KELSTDMT_REGISTRY="$HOME/registry" ORVNMSPORT=$port
trap 'for file in *.pid; do [ ! -f "$file" ] || kill "$(cat "$file")"; done; rm -rf "$HOME"' EXIT
# The superuser, who may run the tests, says that he knows what he does.
if [ "$(id -u)" = 0 ]; then
    mkdir bin
    printf '#!/bin/sh\nexec %s --allow-root "$@"\n' "$(command -v kelrshd)" >bin/kelrshd
    chmod +x bin/kelrshd
    PATH=$HOME/bin:$PATH
fi
sh -e "$script" 2>&1
