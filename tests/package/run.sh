#!/usr/bin/env bash
# What is installed and packaged: the binary contract, the reference documents, "cmake --install" in a clean prefix with
# a project that builds against it, and the Debian packages, which are installed and removed in a throw-away root.
# run.sh    from scripts/test.sh, which has built the preset release
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

say "-- binary contract"
scripts/abi.sh

say "-- doxygen"
mkdir -p build
doxygen docs/Doxyfile

say "-- cmake --install"
cmake --install build/release --prefix "$work/first" >"$work/log"
mv "$work/first" "$work/moved" # nothing in it may depend on its place
libraries=$(dirname "$(find "$work/moved" -name libInputStreamShared.so)")
tests/package/consume.sh "$libraries" "$work/moved"
(
    start_xvfb
    trap 'kill $XVFB_PID' EXIT
    HOME=/nonexistent "$work/moved/bin/zuis-host" play --speed 8 --backend xtest tools/host/sessions/demo.jsonl \
        >"$work/log" 2>&1 || {
        cat "$work/log"
        die "the installed zuis-host does not play"
    }
)

say "-- Debian packages"
# Debug information has been built once already.
DEB_BUILD_OPTIONS="parallel=$(nproc) noautodbgsym" DEB_CFLAGS_APPEND=-g0 DEB_CXXFLAGS_APPEND=-g0 \
    scripts/build-packages.sh
lintian --fail-on error --suppress-tags bad-distribution-in-changes-file out/packages/*.changes

# A copy of this machine whose changes are kept in memory; where such a root cannot be made, the guest's.
packages=$PWD/out/packages
make_root='
        mount -t tmpfs none "$0"
        mkdir "$0"/{upper,work,root}
        mount -t overlay none -o "lowerdir=/,upperdir=$0/upper,workdir=$0/work" "$0/root"'
if unshare --mount --pid --fork bash -euc "$make_root" "$work" 2>/dev/null; then
    unshare --mount --pid --fork bash -euc "$make_root"'
        mount --rbind /dev "$0/root/dev"
        mount -t proc none "$0/root/proc"
        mount -t tmpfs none "$0/root/tmp"
        mkdir "$0/root/tmp/packages"
        cp "$1"/*.deb "$0/root/tmp/packages"
        cp -r "$2" "$0/root/tmp/test"
        touch "$0/root/zuis-throw-away-root"
        chroot "$0/root" env -C / TMPDIR=/tmp /tmp/test/installed.sh /tmp/packages' \
        "$work" "$packages" "$PWD/tests/package"
else
    scripts/guest/guest run -- bash -c 'touch /zuis-throw-away-root && "$0" "$1"' "$PWD/tests/package/installed.sh" \
        "$packages"
fi
say "-- installed, used and removed"
