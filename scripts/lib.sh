# Shared by the scripts: messages, packages, builds. Sourced, not run.
# shellcheck shell=bash disable=SC2034

say() { printf '%s\n' "$@"; }
die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

readonly BUILD_PACKAGES="cmake ninja-build pkg-config g++ libevdev-dev libx11-dev libxi-dev libxtst6 libcli11-dev
    nlohmann-json3-dev libfmt-dev libcairo2-dev"
readonly PACKAGE_PACKAGES="debhelper dpkg-dev fakeroot lintian libfontconfig-dev libxcb1-dev pahole doxygen"
readonly X_PACKAGES="xvfb xinput x11-xkb-utils fonts-dejavu-core"
readonly TEST_PACKAGES="libgtest-dev libgmock-dev clang-14 libclang-rt-14-dev llvm-14 binutils python3 evemu-tools
    libsdl2-dev"
readonly LINT_PACKAGES="clang-format-14 clang-tidy-14 shellcheck shfmt"
readonly BENCH_LIBRARIES="libbenchmark-dev libxtst-dev"
readonly BENCH_PACKAGES="$BENCH_LIBRARIES python3-matplotlib"

# missing_packages PACKAGE...: prints those that are not installed, one a line.
missing_packages() {
    local package
    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed || echo "$package"
    done
}

# ensure_packages PACKAGE...: installs what is missing, says what, and fails when a package cannot be had.
ensure_packages() {
    local missing
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} -eq 0 ] && return
    say "Installing with apt-get: ${missing[*]}"
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || die "run as root, or install these packages first: ${missing[*]}"
        as_root=(sudo)
    fi
    local log
    log=$(mktemp)
    if ! { "${as_root[@]}" apt-get update -q &&
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends \
            "${missing[@]}"; } >"$log" 2>&1; then
        tail -20 "$log" >&2
        rm -f "$log"
        die "these packages cannot be had: ${missing[*]}"
    fi
    rm -f "$log"
}

# build PRESET TESTS [TARGET...]: configures and builds; quiet unless something is wrong.
# TESTS: ON or OFF; with OFF, tests that are configured already stay.
build() {
    local preset=$1 tests=$2 log=build/$1.log
    shift 2
    mkdir -p build
    if ! { { [ "$tests" = OFF ] && [ -e "build/$preset/build.ninja" ] ||
        cmake --preset "$preset" -DZUIS_BUILD_TESTS="$tests"; } &&
        cmake --build "build/$preset" ${1:+--target "$@"}; } >"$log" 2>&1; then
        grep -E 'error|warning|FAILED|CMake Error' "$log" | head -40 >&2
        die "the build failed; the whole output is in $log"
    fi
}

# start_xvfb [ARGUMENT...]: a private X server; sets XVFB_PID and DISPLAY. Its keyboard layout survives its clients.
start_xvfb() {
    local fifo
    fifo=$(mktemp -u) && mkfifo "$fifo"
    Xvfb -displayfd 3 -screen 0 1280x720x24 -noreset -nolisten tcp "$@" 3>"$fifo" 2>/dev/null &
    XVFB_PID=$!
    read -r DISPLAY <"$fifo" || die "Xvfb did not start"
    rm -f "$fifo"
    export DISPLAY=:$DISPLAY
}
