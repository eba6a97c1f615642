#!/usr/bin/env bash
# What the finished library exports, what it needs, and that it looks for nothing by a path of its own.
# binary_test.sh LIBRARY [SANITIZERS]
set -euo pipefail
library=$1
sanitizers=${2:-}
failed=0

expect() { # WHAT EXPECTED ACTUAL
    [ "$2" = "$3" ] && return
    printf '%s differs (expected left, found right):\n' "$1"
    diff --side-by-side <(printf '%s\n' "$2") <(printf '%s\n' "$3") || true
    failed=1
}

dynamic=$(readelf --dynamic --wide "$library")
field() { printf '%s\n' "$dynamic" | sed -n "s/.*($1).*\[\(.*\)\]/\1/p"; }

expect "exported names" "zuisAllowMouseSettings
zuisBlockKeyCombination
zuisCreateZustStream
zuisDestroyHandle
zuisPause
zuisReset
zuisTouchEnable
zuisUnblockAllKeyCombinations
zuisUnblockKeyCombination" "$(nm --dynamic --defined-only --format=posix "$library" | cut -d' ' -f1 | sort)"
expect "SONAME" "libInputStreamShared.so" "$(field SONAME)"
expect "run path" "" "$(printf '%s\n' "$dynamic" | grep -E '\((RPATH|RUNPATH)\)' || true)"
if [ -z "$sanitizers" ]; then
    expect "needed libraries" "ld-linux-x86-64.so.2
libX11.so.6
libXi.so.6
libZuStreamBase.so
libZuStreamServer.so
libc.so.6
libevdev.so.2
libgcc_s.so.1
libm.so.6
libstdc++.so.6" "$(field NEEDED | LC_ALL=C sort)"
fi
exit $failed
