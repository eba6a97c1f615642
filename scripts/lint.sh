#!/usr/bin/env bash
# Holds the style: what can be told without building or running.
#
#   scripts/lint.sh                     everything
#   scripts/lint.sh format [FILE...]    only the form of these files (default: all), in a second
#   scripts/lint.sh tidy [FILE...]      only clang-tidy over these sources (default: all), some ten minutes
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

# shellcheck disable=SC2086
ensure_packages $LINT_PACKAGES
what=${1:-all}
[ $# -eq 0 ] || shift
case $what in all | format | tidy) ;; *) die "unknown argument '$what'; the arguments: format, tidy" ;; esac

mapfile -t files < <([ $# -gt 0 ] && printf '%s\n' "$@" || git ls-files)
code=() shell=()
for file in "${files[@]}"; do
    case $file in
    *.h | *.c | *.cpp) code+=("$file") ;;
    *) [ ! -f "$file" ] || ! head -1 "$file" | grep -qE '^#!.*sh$|Shared by the scripts' || shell+=("$file") ;;
    esac
done

if [ "$what" != tidy ]; then
    [ ${#code[@]} -eq 0 ] || clang-format-14 --dry-run --Werror "${code[@]}"
    if [ ${#shell[@]} -gt 0 ]; then
        shfmt -i 4 -d "${shell[@]}"
        shellcheck -x -S warning "${shell[@]}"
    fi
fi

if [ "$what" != format ]; then
    cmake --preset clang -DZUIS_BUILD_TESTS=ON >/dev/null # for the command lines; nothing is built
    mapfile -t sources < <(printf '%s\n' "${code[@]}" |
        grep -Fxf <(sed -n "s|^ *\"file\": \"$PWD/\(.*\)\".*|\1|p" build/clang/compile_commands.json))
    # tidy PATTERN-OPTION [CLANG-TIDY OPTION]: over the sources that are shipped (-E) or the others (-vE).
    tidy() {
        printf '%s\n' "${sources[@]}" | grep "$1" '^(StreamSdk|RemoteInput|common|rxdiag)/' |
            xargs -r -n 4 -P "$(nproc)" clang-tidy-14 -p build/clang --quiet "${@:2}" 2>/dev/null
    }
    tidy -E '--checks=clang-analyzer-*'
    tidy -vE
fi
