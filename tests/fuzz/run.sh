#!/usr/bin/env bash
# One fuzz target as CI runs it: no input is written to the repository.
#   run.sh kept PROGRAM             every input that is kept, seeds and regressions, one by one and whole
#   run.sh runs PROGRAM RUNS MAXLEN that many runs from there, always the same way
set -euo pipefail
what=$1 program=$2 runs=$3 max_len=$4
here=$(cd "$(dirname "$0")" && pwd)
target=$(basename "$program")
findings=$(dirname "$program")/../findings/$target
mkdir -p "$findings"

folders=("$here/corpus/$target")
[ -d "$here/regressions/$target" ] && folders+=("$here/regressions/$target")
case $what in
kept)
    mapfile -t inputs < <(find "${folders[@]}" -type f | sort)
    [ ${#inputs[@]} -gt 0 ]
    "$program" -artifact_prefix="$findings/" "${inputs[@]}"
    ;;
runs)
    scratch=$(mktemp -d)
    trap 'rm -rf "$scratch"' EXIT
    "$program" -seed=1 -runs="$runs" -max_len="$max_len" -timeout=20 -artifact_prefix="$findings/" -print_final_stats=1 \
        "$scratch" "${folders[@]}"
    ;;
esac
