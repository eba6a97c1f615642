#!/usr/bin/env bash
# The demo on an X server that is there already: used by demo.sh, on this machine or in the guest.
# demo-desktop.sh BACKEND OUT SESSION... -- [OPTIONS of zuis-host play]
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

backend=$1
out=$2
shift 2
sessions=()
while [ "$1" != -- ]; do
    sessions+=("$1")
    shift
done
shift
bin=build/release/bin

export XDG_CONFIG_HOME=$out/no-settings # the demo runs with the library's defaults
# set_layout [LAYOUT [VARIANT]]: of the keyboards that are there, and in the guest of those that will be added: there the
# library's keyboard appears only when a session begins.
set_layout() {
    [ $# -gt 0 ] || return 0
    setxkbmap "$@"
    grep -qw zuis_guest /proc/cmdline || return 0
    mkdir -p /run/udev/rules.d
    printf 'SUBSYSTEM=="input", ENV{XKBLAYOUT}="%s", ENV{XKBVARIANT}="%s"\n' "$1" "${2:-}" >/run/udev/rules.d/99-demo.rules
    udevadm control --reload
}

readers=()
finish() { [ ${#readers[@]} -eq 0 ] || kill "${readers[@]}" 2>/dev/null || true; }
trap finish EXIT
# start NAME COMMAND...: a reader that makes the file $out/NAME.ready.
start() {
    local name=$1
    shift
    "$@" --ready-file "$out/$name.ready" &
    readers+=($!)
    for _ in $(seq 200); do
        [ -e "$out/$name.ready" ] && break
        sleep 0.05
    done
    [ -e "$out/$name.ready" ] || die "$1 did not come up"
    rm -f "$out/$name.ready"
}

start desktop "$bin/zuis-desktop" --fullscreen --no-autorepeat --png "$out/desktop.png" --record "$out/desktop.jsonl"
if [ "$backend" = uinput ]; then # the other backends have no gamepads
    start pads "$bin/zuis-pads" --quiet --png "$out/pads.png" --record "$out/pads.jsonl"
fi

status=0
for session in "${sessions[@]}"; do
    name=$(basename "$session" .jsonl)
    # shellcheck disable=SC2046 # layout and variant
    set_layout $("$bin/zuis-host" show --layout "$session")
    options=(--backend "$backend" --log-level warning --desktop-record "$out/desktop.jsonl" --json "$out/$name.json")
    if grep -q '"type":"move' "$session"; then
        options+=(--network bursts:8 --pacing-png "$out/pacing.png" --timeline "$out/$name-timeline.jsonl")
    fi
    if [ "$backend" = uinput ] && grep -q '"type":"gamepad' "$session"; then
        options+=(--pads-record "$out/pads.jsonl")
    fi
    say "" "== $name"
    "$bin/zuis-host" play "$session" "${options[@]}" "$@" || status=1
done

kill -TERM "${readers[@]}"
for reader in "${readers[@]}"; do wait "$reader" || status=1; done
readers=()
say "" "Pictures: $(ls "$out"/*.png | tr '\n' ' ')"
exit $status
