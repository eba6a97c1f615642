#!/usr/bin/env bash
# Builds and runs a project against an installed library, found by CMake and by pkg-config, in a clean directory.
# consume.sh LIBRARY_FOLDER [PREFIX]     PREFIX: not needed where the system looks anyway
set -euo pipefail
libraries=$1
prefix=${2:-}
source=$(cd "$(dirname "$0")" && pwd)/consumer
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$source" "$work/source"
cd "$work"
export VirtualEvDevImp=2 XDG_CONFIG_HOME=/nonexistent HOME=/nonexistent
unset DISPLAY

cmake -S source -B build -DSTACK="$libraries/zuis-tools" ${prefix:+-DCMAKE_PREFIX_PATH="$prefix"} >log 2>&1 &&
    cmake --build build >>log 2>&1 || {
    cat log >&2
    exit 1
}

# With the prefix moved, only relative paths still lead there.
[ -z "$prefix" ] || export PKG_CONFIG_PATH=$libraries/pkgconfig
pkg-config --exact-version=1.0.0 ZuInputStream
# shellcheck disable=SC2046
gcc -Wall -Werror source/consumer.c -o loads-pc $(pkg-config --cflags ZuInputStream)
# shellcheck disable=SC2046
gcc -Wall -Werror -DLINKED source/consumer.c -o links-pc $(pkg-config --cflags --libs ZuInputStream) \
    -L"$libraries/zuis-tools" -lZuStreamServer -lZuStreamBase

export LD_LIBRARY_PATH=$libraries/zuis-tools${prefix:+:$libraries}
for program in build/loads build/links ./loads-pc ./links-pc; do
    output=$($program)
    [ "$output" = "result 0x00000000, stream yes, handle no" ] || {
        echo "$program: $output" >&2
        exit 1
    }
done
