#!/usr/bin/env bash
# Hands of real users on real mice, imported and played through the library on a screen that is wide enough: every step
# arrives, and the pointer ends where the sum of the recorded steps puts it.
# recordings_test.sh BINARIES     (ZUIS_RECORDINGS names the folder with the recordings)
set -euo pipefail
bin=$1
. "$(dirname "$0")/../../scripts/lib.sh"
if [ ! -d "${ZUIS_RECORDINGS:-}" ]; then
    [ "${CI:-}" != true ] || die "ZUIS_RECORDINGS names no folder"
    say "left out: ZUIS_RECORDINGS names no folder with recordings"
    exit 0
fi

scratch=$(mktemp -d)
XVFB_PID=
trap '[ -z "$XVFB_PID" ] || kill "$XVFB_PID"; rm -rf "$scratch"' EXIT
export XDG_CONFIG_HOME=$scratch
start_xvfb -screen 0 16384x8192x8
at="8192 4096" # the pointer starts in the middle, and the next recording where the last one left it
failed=0

check() { # RECORDING [DESCRIPTION]
    local events=$ZUIS_RECORDINGS/$1 session=$scratch/session.jsonl record=$scratch/desktop.jsonl desktop expected
    "$bin/zuis-host" import "$events" ${2:+--device "$ZUIS_RECORDINGS/$2"} -o "$session"
    rm -f "$record" "$scratch/ready"
    xinput set-prop "Virtual core XTEST pointer" "Coordinate Transformation Matrix" 1 0 0 0 1 0 0 0 1
    "$bin/zuis-desktop" --fullscreen --record "$record" --ready-file "$scratch/ready" &
    desktop=$!
    until [ -e "$scratch/ready" ]; do sleep 0.05; done
    # By its path: under a sanitizer the loader does not know the tool's run path.
    "$bin/zuis-host" play "$session" --library "$bin/../lib/libInputStreamShared.so" --backend xtest --speed 10 \
        --log-level error --desktop-record "$record" --json "$scratch/summary.json" >"$scratch/log" || {
        cat "$scratch/log"
        failed=1
    }
    kill "$desktop"
    wait "$desktop" || true
    expected=$(awk -v at="$at" 'BEGIN { split(at, p); x = p[1]; y = p[2] }
        /^E:/ && $3 == "0002" && $4 == "0000" { x += $5 } /^E:/ && $3 == "0002" && $4 == "0001" { y += $5 }
        END { print x, y }' "$events")
    at=$(sed -n 's/.*"event":"motion".*"x":\([0-9]*\).*"y":\([0-9]*\).*/\1 \2/p' "$record" | tail -1)
    say "$1: the pointer ended at $at, and should at $expected"
    [ "$at" = "$expected" ] || failed=1
}

check mouse-ps2-hand.events mouse-ps2-hand.desc
check mouse-touch-hand.events
check mouse-wheel.events mouse-wheel.desc
exit $failed
