#!/usr/bin/env bash
# The whole way of a remote key and pointer, on a machine without a streaming server: a session is played through the
# library into a desktop, and what the desktop saw is compared with what was sent.
#
#   scripts/demo.sh [--session FILE] [--kernel] [--out FOLDER] [-- zuis-host options...]
#
# Installs what is missing with apt-get. Leaves pictures and records in out/demo.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

session=
out=out/demo
kernel=
while [ $# -gt 0 ]; do
    case $1 in
    --session) session=${2:?--session needs a file}; shift 2 ;;
    --out) out=${2:?--out needs a folder}; shift 2 ;;
    --kernel) kernel=1; shift ;;
    --) shift; break ;;
    -h | --help) sed -n '2,8s/^# \{0,1\}//p' "$0"; exit 0 ;;
    *) die "unknown argument '$1' (see --help)" ;;
    esac
done
host_options=("$@")
