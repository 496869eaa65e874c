#!/usr/bin/env bash
# Sets up a fresh machine (Debian 12 as root or with sudo; macOS with Homebrew), then builds and either
# starts the application (run), runs every test (test), runs every test under the address and undefined-behaviour
# sanitizers (asan), or runs the benchmarks (bench). Further arguments after "run" go to the program.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    echo "usage: tools/dev.sh run [program options] | test | asan | bench" >&2
    exit 2
}

# Debian packages the build, the tests and the diagnostic scripts need (RapidJSON reads world files; the
# scripts' network tools: dig, ping, traceroute, openssl, curl, lsof and ps; a virtual X server, a tray and
# xwininfo for the test that puts the application into a real system tray).
debian_packages=(cmake ninja-build g++ pkg-config qt6-base-dev qt6-svg-dev libgl-dev rapidjson-dev zsh xvfb trayer
    x11-utils openssl ca-certificates curl dnsutils iputils-ping traceroute lsof procps locales tzdata)

install_dependencies() {
    case "$(uname -s)" in
    Linux)
        command -v dpkg-query >/dev/null || return 0
        local missing=()
        for package in "${debian_packages[@]}" "$@"; do
            dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
        done
        [ ${#missing[@]} -eq 0 ] && return 0
        local sudo=""
        [ "$(id -u)" -eq 0 ] || sudo=sudo
        echo "Installing: ${missing[*]}"
        $sudo apt-get update -qq
        DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
        ;;
    Darwin)
        command -v brew >/dev/null || { echo "Homebrew is needed: https://brew.sh" >&2; exit 1; }
        for formula in qt cmake ninja rapidjson; do
            brew list --formula "$formula" >/dev/null 2>&1 || brew install "$formula"
        done
        export CMAKE_PREFIX_PATH="$(brew --prefix qt)${CMAKE_PREFIX_PATH:+:$CMAKE_PREFIX_PATH}"
        ;;
    esac
}

build() {
    local preset=$1
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset"
}

command=${1:-}
[ $# -gt 0 ] && shift
case "$command" in
run)
    install_dependencies
    build default
    if [ "$(uname -s)" = Linux ] && [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] && [ -z "${QT_QPA_PLATFORM:-}" ]; then
        echo "No display found: running headless (QT_QPA_PLATFORM=offscreen); no window or tray icon will be visible." >&2
        export QT_QPA_PLATFORM=offscreen
    fi
    exec build/default/orvanta-mac-toolkit "$@"
    ;;
test)
    install_dependencies
    build default
    ctest --preset default
    ;;
asan)
    install_dependencies
    build asan
    ctest --preset asan
    ;;
bench)
    install_dependencies libbenchmark-dev
    build release
    for program in build/release/bench/bench_*; do
        [ -x "$program" ] && "$program"
    done
    ;;
*) usage ;;
esac
