#!/usr/bin/env bash
# Holds the style: what can be told without building or running.
#
#   scripts/lint.sh                     everything
#   scripts/lint.sh format [FILE...]    only the form of these files (default: all), in two seconds
#   scripts/lint.sh tidy [FILE...]      only clang-tidy over these sources (default: all), some five minutes
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

what=${1:-all}
[ $# -eq 0 ] || shift
# shellcheck disable=SC2086
case $what in
format) ensure_packages $LINT_PACKAGES ;;
all | tidy) ensure_packages $LINT_PACKAGES $BUILD_PACKAGES $TEST_PACKAGES $BENCH_LIBRARIES ;;
*) die "unknown argument '$what'; the arguments: format, tidy" ;;
esac

given=$#
mapfile -t files < <([ $# -gt 0 ] && printf '%s\n' "$@" || git ls-files)
code=() shell=()
for file in "${files[@]}"; do
    case $file in
    *.h | *.c | *.cpp) code+=("$file") ;;
    *) [ ! -f "$file" ] || ! head -1 "$file" | grep -qE '^#!.*sh$|Shared by the scripts' || shell+=("$file") ;;
    esac
done

bad=0
if [ "$what" != tidy ]; then
    [ ${#code[@]} -eq 0 ] || clang-format-14 --dry-run --Werror "${code[@]}" || bad=1
    if [ ${#shell[@]} -gt 0 ]; then
        shfmt -i 4 -d "${shell[@]}" || bad=1
        shellcheck -x -S warning "${shell[@]}" || bad=1
    fi
fi

if [ "$what" != format ]; then
    # For the command lines; nothing is built. What is looked at as a whole goes in the bundles of a unity build, for a
    # test's headers take ten times as long as the test.
    unity=$([ "$given" -eq 0 ] && echo ON || echo OFF)
    cmake --preset clang -B build/lint -DZUIS_BUILD_{TESTS,BENCH,FUZZ}=ON -DCMAKE_UNITY_BUILD="$unity" >/dev/null
    mapfile -t sources < <(sed -n "s|^ *\"file\": \"$PWD/\(.*\)\".*|\1|p" build/lint/compile_commands.json | sort -u)
    [ "$given" -eq 0 ] || mapfile -t sources < <(printf '%s\n' "${sources[@]}" | grep -Fx "$(printf '%s\n' "${code[@]}")")
    # tidy PATTERN-OPTION [CLANG-TIDY OPTION]: over the sources that are shipped (-E) or the others (-vE).
    tidy() {
        { printf '%s\n' "${sources[@]}" | grep "$1" '^(build/lint/)?(StreamSdk|RemoteInput|common|rxdiag)/' || true; } |
            xargs -r -n 1 -P "$(nproc)" clang-tidy-14 -p build/lint --quiet "${@:2}" \
                2> >(grep -vE '^[0-9]+ warnings? generated' >&2) || bad=1
    }
    # A bundle includes sources.
    tidy -E '--checks=clang-analyzer-*,bugprone-exception-escape,-bugprone-suspicious-include'
    tidy -vE --checks=-bugprone-suspicious-include
fi
exit $bad
