#!/usr/bin/env bash
# The binary contract of the library: its exported functions and every record and enumeration of the public headers, as
# the debug information of the finished library has them.
#
#   scripts/abi.sh [LIBRARY]             compares with abi/libInputStreamShared.txt; fails and shows what differs
#   scripts/abi.sh --update [LIBRARY]    writes that file anew, for a change that is meant
#
# LIBRARY is that of the preset release.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh
ensure_packages pahole binutils

update=no
if [ "${1:-}" = --update ]; then
    update=yes
    shift
fi
library=${1:-build/release/lib/libInputStreamShared.so}
kept=abi/libInputStreamShared.txt
[ -e "$library" ] || die "there is no $library: build the preset release first"
new=$(mktemp)
trap 'rm -f "$new"' EXIT

# pahole complains at length about templates, which are no part of this.
printf 'SONAME %s\n' "$(readelf -dW "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')" >"$new"
prototypes=$(pfunct --prototypes "$library" 2>/dev/null)
for name in $(nm --dynamic --defined-only --format=posix "$library" | cut -d' ' -f1 | LC_ALL=C sort); do
    grep -E "^[A-Za-z_0-9 ]+[ *]$name\(" <<<"$prototypes" || die "no debug information about $name"
done >>"$new"
types=$(sed -nE 's/^ZU_(RECORD|UNION|ENUM|NUMBERS)\((\w+).*/\2_t/p; s/^(struct|class|enum) (\w+)( : .*)?$/\2/p' \
    StreamSdk/include/*.h StreamSdk/helpers/input/*.h | LC_ALL=C sort -u)
for type in $types; do
    text=$(pahole -C "$type" "$library" 2>/dev/null)
    [ -n "$text" ] || die "no debug information about $type"
    # Not: hints on packing, and constructors that the compiler makes where something uses them.
    sed -E '/^\s*$/d; /XXX|cacheline:|cacheline [0-9]|sum members|^\s*void \w+\(class/d; s/, cachelines: [0-9]+//' <<<"$text"
done >>"$new"

if [ $update = yes ]; then
    cp "$new" "$kept"
elif ! diff -u --label kept --label built "$kept" "$new"; then
    die "the binary contract has changed. If that is meant: scripts/abi.sh --update, and a new major version"
fi
