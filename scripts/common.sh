# SPDX-License-Identifier: BSD-2-Clause
# Copyright (c) 2026, the mp4vdec authors

# Sourced by the scripts: the root of the project, messages and packages.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)

build_packages=(g++ cmake ninja-build libcli11-dev libmd-dev libpng-dev libboost-dev)
test_packages=(clang clang-format libclang-rt-14-dev llvm libgtest-dev libbenchmark-dev)
coverage_packages=(gcovr)

say() { printf '== %s\n' "$*" >&2; }

die() {
    printf '%s\n' "$*" >&2
    exit 2
}

# need PACKAGE...: installs what is missing when it may, else says what is missing
need() {
    local missing=() package
    if ! command -v dpkg-query >/dev/null; then
        say "not a Debian system: assuming that these are there: $*"
        return
    fi
    for package in "$@"; do
        if ! dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed; then
            missing+=("$package")
        fi
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        die "Please install first: apt-get install ${missing[*]}"
    fi
    say "installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get install -y --no-install-recommends "${missing[@]}" >/dev/null 2>&1 ||
        { apt-get update -qq && apt-get install -y --no-install-recommends "${missing[@]}" >/dev/null; } ||
        die "These packages could not be installed: ${missing[*]}"
}

# preset NAME: configures, builds and tests
preset() {
    say "preset $1"
    (
        cd "$root"
        cmake --preset "$1" --log-level=WARNING
        cmake --build --preset "$1" --parallel "$jobs"
        ctest --preset "$1" --parallel "$jobs" --timeout 900
    )
}
