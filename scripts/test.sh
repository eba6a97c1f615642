#!/usr/bin/env bash
# Builds and runs all tests. Installs what is missing with apt-get.
#
#   scripts/test.sh               everything, as in CI
#   scripts/test.sh STAGE...      only these stages, of: lint release clang asan tsan fuzz package kernel
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

ALL_STAGES="lint release clang asan tsan fuzz package kernel"
stages=${*:-$ALL_STAGES}
for stage in $stages; do
    case " $ALL_STAGES " in *" $stage "*) ;; *) die "there is no stage '$stage'; the stages: $ALL_STAGES" ;; esac
done

# shellcheck disable=SC2046,SC2086
ensure_packages $BUILD_PACKAGES $LINT_PACKAGES $BENCH_LIBRARIES $X_PACKAGES $TEST_PACKAGES $PACKAGE_PACKAGES \
    $(scripts/guest/guest packages)

passed=0
failed=0

# count OUTPUT: adds what ctest counted.
count() {
    local total bad
    total=$(sed -n 's/.*tests failed out of \([0-9]*\).*/\1/p' "$1")
    bad=$(sed -n 's/.*, \([0-9]*\) tests failed out of .*/\1/p' "$1")
    [ -n "$total" ] || die "no tests were run"
    passed=$((passed + total - bad))
    failed=$((failed + bad))
}

run_ctest() { # PRESET
    local log=build/ctest-$1.log
    say "== tests: $1"
    ctest --test-dir "build/$1" --output-on-failure --no-tests=error -j2 2>&1 | tee "$log" | grep -E '^ *[0-9]+% tests|Failed|\*\*\*|Failure' || true
    count "$log"
    grep -q '100% tests passed' "$log" || sed -n '/\*\*\*/,/Start /p' "$log" | head -200
}

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1

for stage in $stages; do
    start=$SECONDS
    case $stage in
    release | asan | tsan)
        say "== build: $stage"
        build "$stage" ON
        run_ctest "$stage"
        ;;
    lint)
        say "== style: clang-format, clang-tidy, shfmt, shellcheck"
        if scripts/lint.sh; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
        ;;
    clang)
        say "== build: clang (warnings are errors)"
        # What is shipped; every header alone. The tests have been through clang in the stage lint.
        build clang ON InputStreamShared zuis-host zuis-desktop zuis-pads all_verify_interface_header_sets
        passed=$((passed + 1))
        ;;
    fuzz)
        say "== build: fuzz targets"
        build fuzz OFF fuzzers
        run_ctest fuzz
        ;;
    package)
        say "== installed and packaged"
        build release ON
        if tests/package/run.sh; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
        ;;
    kernel)
        say "== kernel ring"
        build release ON
        if tests/kernel/run.sh build/release; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
        ;;
    esac
    say "   $((SECONDS - start)) s"
done

say "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
