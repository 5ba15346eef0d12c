# SPDX-License-Identifier: BSD-3-Clause
# shellcheck shell=bash
# Functions of all scripts; source this file. Defines `root`, the top directory of the checkout.

set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# say TEXT: prints a heading.
say() {
    if [ -t 1 ]; then printf '\n\033[1m%s\033[0m\n' "$*"; else printf '\n%s\n' "$*"; fi
}

# corvane_install_dependencies [-PPROFILE,...]: installs the missing build dependencies of debian/control, or with build
# profiles only those that the profiles need: -Pnocheck,nodoc selects those of the library, the tools and the examples.
# Needs root or sudo only if one is missing.
corvane_install_dependencies() {
    [ $# -gt 0 ] || set -- -Ppkg.libcorvane-qt5.devel
    local source
    source=$(mktemp -d)
    mkdir "$source/debian"
    # Only the packages need debhelper, and scripts/package installs it in a bare system.
    sed '/^ debhelper-compat /d' "$root/debian/control" >"$source/debian/control"
    if ! command -v dpkg-checkbuilddeps >/dev/null \
        || ! dpkg-checkbuilddeps "$@" "$source/debian/control" 2>/dev/null; then
        corvane_install_build_dependencies "$source" "$@"
    fi
    rm -r "$source"
}

# corvane_install_build_dependencies DIR [OPTION...]: installs the build dependencies of DIR/debian/control.
corvane_install_build_dependencies() {
    say "Installing the build dependencies listed in debian/control ..."
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "Run this script as root, or install sudo: build dependencies are missing." >&2
            return 1
        fi
        as_root=(sudo)
    fi
    "${as_root[@]}" apt-get -q update
    (cd "$1" && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -q -y --no-install-recommends "${@:2}" build-dep ./)
}

# corvane_configure DIR [CMAKE-ARGUMENT...]: configures a build of the checkout in DIR.
corvane_configure() {
    local directory=$1
    shift
    if command -v ccache >/dev/null; then
        set -- -DCMAKE_CXX_COMPILER_LAUNCHER=ccache "$@"
    fi
    mkdir -p "$directory"
    if ! cmake -S "$root" -B "$directory" -G Ninja "$@" >"$directory/configure.log" 2>&1; then
        cat "$directory/configure.log" >&2
        return 1
    fi
}

# corvane_build DIR [CMAKE-ARGUMENT...]: configures and builds the checkout in DIR.
corvane_build() {
    corvane_configure "$@"
    cmake --build "$1"
}
