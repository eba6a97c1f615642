#!/usr/bin/env bash
# Measures what an event costs and where it goes, each figure beside its floor of the same run.
#
#   scripts/bench.sh [--quick] [--out FOLDER]
#
#   --quick        few repetitions: to see that it works
#   --out FOLDER   where bench.json and the pictures go (default: out/bench)
#
# Prints a table. Installs what is missing with apt-get. Compare ratios within one run only; leave the machine alone
# meanwhile. No figure makes it fail.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

out=out/bench
processes=10 repetitions=15 seconds=0.05 rounds=15 loads=15
while [ $# -gt 0 ]; do
    case $1 in
    --quick)
        processes=2 repetitions=3 seconds=0.01 rounds=2 loads=3
        shift
        ;;
    --out)
        out=${2:?--out needs a folder}
        shift 2
        ;;
    -h | --help)
        sed -n '2,11s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *) die "unknown argument '$1' (see --help)" ;;
    esac
done

# shellcheck disable=SC2086
ensure_packages $BUILD_PACKAGES $X_PACKAGES $BENCH_PACKAGES
say "Building (the first time takes a few minutes)"
mkdir -p build
if ! { cmake --preset bench && cmake --build build/bench; } >build/bench.log 2>&1; then
    grep -E 'error|FAILED|CMake Error' build/bench.log | head -40 >&2
    die "the build failed; the whole output is in build/bench.log"
fi

mkdir -p "$out"
raw=$(mktemp -d)
XVFB_PID=
trap 'rm -rf "$raw"; [ -z "$XVFB_PID" ] || kill "$XVFB_PID" 2>/dev/null' EXIT
start_xvfb
export XDG_CONFIG_HOME=$raw/no-settings
bin=build/bench/bin
options=(--benchmark_min_time="$seconds" --benchmark_format=json)
# Where a process happens to have its pages makes some per cent: several of each.
say "Events over uinput, with a double; over XTest, in a process that ignores SIGPIPE and in one that does not"
for i in $(seq "$processes"); do
    VirtualEvDevImp=0 "$bin/event-bench" "${options[@]}" >"$raw/events.$i.json" 2>/dev/null
    VirtualEvDevImp=2 env --ignore-signal=PIPE "$bin/event-bench" "${options[@]}" >"$raw/xtest.$i.json" 2>/dev/null
    VirtualEvDevImp=2 env --default-signal=PIPE "$bin/event-bench" "${options[@]}" >"$raw/sigpipe.$i.json" 2>/dev/null
done
say "The queue and the collector"
"$bin/micro-bench" "${options[@]}" --benchmark_enable_random_interleaving=true \
    --benchmark_repetitions="$repetitions" >"$raw/micro.1.json" 2>/dev/null
say "The mouse's hop"
"$bin/hop-bench" --rounds "$rounds" --json "$raw/hop.json" 2>/dev/null
say "Loading"
env -u DISPLAY "$bin/load-bench" --rounds "$loads" --json "$raw/load.json" 2>/dev/null
say ""
# Debian's own: a python3 that comes first in PATH would not find its packages.
/usr/bin/python3 scripts/bench-report.py "$raw" "$out"
say "" "In $out: bench.json, $(cd "$out" && ls ./*.png | sed 's|^\./||' | paste -sd ' ')"
