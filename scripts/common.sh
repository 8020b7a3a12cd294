# Shared by the scripts in this folder: sourced, not run.
# shellcheck shell=bash disable=SC2034 # the package lists are for those who source this

cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1

say() { printf '\n== %s\n' "$*"; }

# Installs the Debian packages named that are missing.
need_packages() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    say "installing Debian packages: ${missing[*]}"
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || {
            echo "These packages are missing and need root: run as root, or install sudo first." >&2
            return 1
        }
        as_root=(sudo)
    fi
    "${as_root[@]}" apt-get update -qq &&
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
            apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

BUILD_PACKAGES=(g++ cmake ninja-build googletest libcli11-dev nlohmann-json3-dev libspdlog-dev
    libfmt-dev libasio-dev)
MIPS_PACKAGES=(g++-mips-linux-gnu qemu-user)
CHECK_PACKAGES=(python3 tshark gammu gcovr abigail-tools)

# Configures and builds a preset; the rest of the arguments goes to the build.
build() {
    local preset=$1
    shift
    cmake --preset "$preset" >"build-$preset.log" 2>&1 || {
        cat "build-$preset.log"
        rm -f "build-$preset.log"
        return 1
    }
    rm -f "build-$preset.log"
    cmake --build --preset "$preset" "$@"
}
