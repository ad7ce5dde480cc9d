# Shared by the scripts of the root, .ci/ and packaging/: packages, configuring, building, testing.
# Sourced by bash; expects nothing but Debian's base system.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# Clones in different folders share what was compiled.
export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1

note() {
    if [[ -t 1 ]]; then printf '\033[1m==> %s\033[0m\n' "$*"; else printf '==> %s\n' "$*"; fi
}
fail() { printf '%s: %s\n' "${0##*/}" "$*" >&2; exit 1; }

installed() {
    [[ $(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

# need REASON PACKAGE...: installs the packages that are missing. Root is asked for only then.
need() {
    local reason=$1 package missing=()
    shift
    command -v dpkg-query >/dev/null || return 0  # not Debian: whoever runs this sees to the tools
    for package; do
        installed "$package" || missing+=("$package")
    done
    ((${#missing[@]})) || return 0
    note "Debian packages to install, $reason: ${missing[*]}"
    local as_root=()
    if ((EUID != 0)); then
        command -v sudo >/dev/null || fail "as root, run: apt-get install ${missing[*]}"
        as_root=(sudo)
    fi
    local install=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive
        apt-get install -y -q --no-install-recommends "${missing[@]}")
    # A machine whose package lists are absent or old needs them first.
    "${install[@]}" || { "${as_root[@]}" apt-get update -q && "${install[@]}"; } ||
        fail "could not install ${missing[*]}"
}

need_to_build() {
    local tools=(cmake ninja-build libcli11-dev nlohmann-json3-dev)  # the last two for the program kel
    command -v "${CXX:-c++}" >/dev/null || tools+=(g++)
    command -v "${CC:-cc}" >/dev/null || tools+=(gcc)
    need "to build" "${tools[@]}"
}

# configure PRESET [-DNAME=VALUE...]: an existing build folder keeps its generator.
configure() {
    [[ -f build/$1/CMakeCache.txt ]] || ! command -v ninja >/dev/null || export CMAKE_GENERATOR=Ninja
    note "configure $1"
    local log
    log=$(cmake --preset "$@" 2>&1) || { printf '%s\n' "$log"; return 1; }
    grep -A3 '^CMake Warning' <<<"$log" || true
}

# build PRESET [TARGET...]
build() {
    local preset=$1
    shift
    note "build $preset"
    cmake --build "build/$preset" --parallel "$(nproc)" ${*:+--target "$@"}
}
