# SPDX-License-Identifier: BSD-2-Clause
# Copyright (c) 2026, the mp4vdec authors

# Sourced by the scripts: the root of the project, messages and packages.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)

build_packages=(g++ cmake ninja-build libcli11-dev libmd-dev libpng-dev libcairo2-dev nlohmann-json3-dev
    libgstreamer1.0-dev gstreamer1.0-plugins-base gstreamer1.0-plugins-good)
plugin_packages=(libgstreamer-plugins-base1.0-dev)
test_packages=(file clang clang-format libclang-rt-14-dev llvm libgtest-dev libbenchmark-dev
    "${plugin_packages[@]}" gstreamer1.0-plugins-base-apps)
coverage_packages=(gcovr)
emulation_packages=(qemu-user-static googletest)
web_packages=(cmake ninja-build emscripten nodejs node-typescript)
arm64_packages=(libmd-dev:arm64 libpng-dev:arm64 libbenchmark-dev:arm64)

say() { printf '== %s\n' "$*" >&2; }

die() {
    printf '%s\n' "$*" >&2
    exit 2
}

# need PACKAGE...: installs what is missing when it may, else says what is missing. NAME:ARCH is for another architecture.
need() {
    local missing=() package
    local -A foreign=()
    if ! command -v dpkg-query >/dev/null; then
        say "not a Debian system: assuming that these are there: $*"
        return
    fi
    for package in "$@"; do
        if ! dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed; then
            missing+=("$package")
            [ "${package%:*}" = "$package" ] || foreign[${package#*:}]=1
        fi
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        [ ${#foreign[@]} -eq 0 ] || say "for another architecture: dpkg --add-architecture ${!foreign[*]} && apt-get update"
        die "Please install first: apt-get install ${missing[*]}"
    fi
    say "installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    for package in "${!foreign[@]}"; do
        dpkg --add-architecture "$package"
    done
    local install=(apt-get install -o Acquire::Retries=3 -y --no-install-recommends "${missing[@]}")
    # A mirror that is being renewed may fail the update and yet have all that is wanted.
    "${install[@]}" >/dev/null 2>&1 || { apt-get update -qq -o Acquire::Retries=3 || true; "${install[@]}" >/dev/null; } ||
        die "These packages could not be installed: ${missing[*]}"
}

# preset NAME [TEST]: configures, builds and tests; all, or what TEST_test.cpp has
preset() {
    say "preset $1${2:+, $2}"
    (
        cd "$root"
        cmake --preset "$1" --log-level=WARNING
        cmake --build --preset "$1" --parallel "$jobs" ${2:+--target "$2_test"}
        ctest --preset "$1" --parallel "$jobs" --timeout 900 ${2:+--tests-regex "^$2" --no-tests=error}
    )
}
