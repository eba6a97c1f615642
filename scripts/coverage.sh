#!/usr/bin/env bash
# Says which lines and branches of the library the tests reach.
#
#   scripts/coverage.sh [--kernel]
#
#   --kernel   count the kernel ring, in the virtual machine, too
#
# Installs what is missing with apt-get. The table goes to standard output, the annotated sources to
# build/coverage/report/index.html. Exit status: 0 when the tests passed.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

kernel=
case ${1:-} in
'') ;;
--kernel) kernel=1 ;;
-h | --help)
    sed -n '2,9s/^# \{0,1\}//p' "$0"
    exit 0
    ;;
*) die "unknown argument '$1' (see --help)" ;;
esac

# shellcheck disable=SC2046,SC2086
ensure_packages $BUILD_PACKAGES $X_PACKAGES $TEST_PACKAGES gcovr ${kernel:+$(scripts/guest/guest packages)}
say "Building (the first time takes a few minutes)"
build coverage ON
find build/coverage -name '*.gcda' -delete
status=0
ctest --test-dir build/coverage --output-on-failure --no-tests=error -j2 >build/ctest-coverage.log 2>&1 || status=1
grep -E 'tests passed|Failed|Not Run' build/ctest-coverage.log || true
if [ -n "$kernel" ]; then
    scripts/guest/guest run --x --timeout 900 --share build/coverage -- build/coverage/bin/KernelRing --gtest_brief=1 ||
        status=1
fi
mkdir -p build/coverage/report
# Branches that only an exception takes belong to every call, and say nothing about the tests.
gcovr --root . --object-directory build/coverage --exclude-throw-branches --exclude-unreachable-branches \
    --filter RemoteInput/ --filter rxdiag/ --filter common/ --filter StreamSdk/ \
    --html-details build/coverage/report/index.html --print-summary --txt - | sed 's/^-\{40,\}$//'
exit $status
