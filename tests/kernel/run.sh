#!/usr/bin/env bash
# Runs the kernel ring in the guest, in one boot. Fails when there can be no guest.
# run.sh BUILD-TREE [gtest options]
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
tree=$(cd "${1:?run.sh BUILD-TREE}" && pwd)
shift
export XDG_CONFIG_HOME=/nonexistent # no settings but ours
exec "$root/scripts/guest/guest" run --x --timeout 900 -- bash -c '
    status=0
    "$0/bin/KernelRing" --gtest_brief=1 "${@:2}" || status=1
    "$1/tests/kernel/enable-remote-input-test.sh" || status=1
    exit $status' "$tree" "$root" "$@"
