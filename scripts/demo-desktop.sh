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
while [ "$1" != -- ]; do sessions+=("$1"); shift; done
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

desktop=
finish() { [ -z "$desktop" ] || kill "$desktop" 2>/dev/null || true; }
trap finish EXIT

"$bin/zuis-desktop" --fullscreen --no-autorepeat --png "$out/desktop.png" --record "$out/desktop.jsonl" \
    --ready-file "$out/ready" &
desktop=$!
for _ in $(seq 200); do [ -e "$out/ready" ] && break; sleep 0.05; done
[ -e "$out/ready" ] || die "zuis-desktop did not come up"

status=0
for session in "${sessions[@]}"; do
    name=$(basename "$session" .jsonl)
    set_layout $("$bin/zuis-host" show --layout "$session")
    options=(--backend "$backend" --log-level warning --desktop-record "$out/desktop.jsonl" --json "$out/$name.json")
    if grep -q '"type":"move' "$session"; then
        options+=(--network bursts:8 --pacing-png "$out/pacing.png" --timeline "$out/$name-timeline.jsonl")
    fi
    say "" "== $name"
    "$bin/zuis-host" play "$session" "${options[@]}" "$@" || status=1
done

kill -TERM "$desktop"
wait "$desktop" || status=1
desktop=
rm -f "$out/ready"
say "" "Pictures: $(ls "$out"/*.png | tr '\n' ' ')"
exit $status
