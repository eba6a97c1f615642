#!/usr/bin/env bash
# Builds the Debian packages into out/packages/.
#
#   scripts/build-packages.sh
#
# The build runs on a copy below build/package, which is kept, so that the next one is quick.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh
# shellcheck disable=SC2086
ensure_packages $BUILD_PACKAGES $PACKAGE_PACKAGES

copy=build/package/source
log=build/package/build.log
mkdir -p $copy out/packages
rm -rf $copy/debian # with what the last build noted as done
tar --create --exclude=./build --exclude=./out --exclude=./.git . | tar --extract --directory=$copy
rm -f build/package/*.{deb,changes,buildinfo} out/packages/*
if ! (cd $copy && DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS:-parallel=$(nproc)}" dpkg-buildpackage -us -uc -b -nc) \
    >$log 2>&1; then
    tail -n 20 $log | cut -c1-300 >&2
    die "the build failed; the whole output is in $log"
fi
mv build/package/*.{deb,changes,buildinfo} out/packages/
say out/packages/*.deb
