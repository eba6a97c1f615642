#!/usr/bin/env bash
# The whole way of a remote key and pointer on a machine without a streaming server: sessions are played through the
# library into a desktop, and what the desktop saw is compared with what was sent.
#
#   scripts/demo.sh [--session FILE] [--kernel] [--out FOLDER] [-- OPTIONS of zuis-host play]
#
#   --session FILE   play this session instead of those that are shipped; may be given several times
#   --kernel         in a virtual machine with a real /dev/uinput, over the default backend, under Xorg with libinput,
#                    and with gamepads and all fingers; without it, over the XTest extension of a private Xvfb
#   --out FOLDER     where pictures and records go (default: out/demo, with --kernel out/demo-kernel)
#
# Installs what is missing with apt-get. Exit status: 0 when everything that was sent was seen.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

shipped=tools/host/sessions
sessions=()
out=
kernel=
while [ $# -gt 0 ]; do
    case $1 in
    --session)
        sessions+=("${2:?--session needs a file}")
        shift 2
        ;;
    --out)
        out=${2:?--out needs a folder}
        shift 2
        ;;
    --kernel)
        kernel=1
        shift
        ;;
    --)
        shift
        break
        ;;
    -h | --help)
        sed -n '2,13s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *) die "unknown argument '$1' (see --help)" ;;
    esac
done
out=${out:-out/demo${kernel:+-kernel}}
[ ${#sessions[@]} -gt 0 ] || sessions=("$shipped/demo.jsonl" "$shipped/strokes.jsonl" ${kernel:+"$shipped/game.jsonl"})
for session in "${sessions[@]}"; do [ -r "$session" ] || die "cannot read $session"; done

# shellcheck disable=SC2046,SC2086
ensure_packages $BUILD_PACKAGES $X_PACKAGES ${kernel:+$(scripts/guest/guest packages)}
say "Building (the first time takes a few minutes)"
build release OFF InputStreamShared zuis-host zuis-desktop zuis-pads

rm -rf "$out"
mkdir -p "$out"
out=$(cd "$out" && pwd)
if [ -n "$kernel" ]; then
    say "Starting a virtual machine (its kernel is fetched the first time)"
    exec scripts/guest/guest run --x --share "$out" -- scripts/demo-desktop.sh uinput "$out" "${sessions[@]}" -- "$@"
fi
XVFB_PID=
trap '[ -z "$XVFB_PID" ] || kill "$XVFB_PID" 2>/dev/null' EXIT
start_xvfb
scripts/demo-desktop.sh xtest "$out" "${sessions[@]}" -- "$@"
