#!/usr/bin/env bash
# Installs the packages, looks at what they bring, removes them. Changes the machine that it runs on, hence only in a
# throw-away root: see run.sh.
# installed.sh FOLDER_OF_PACKAGES
set -euo pipefail
[ -e /zuis-throw-away-root ] || {
    echo "installed.sh: not here; see run.sh" >&2
    exit 2
}
packages=$1
here=$(cd "$(dirname "$0")" && pwd)
libraries=/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
fail() {
    printf 'installed.sh: %s\n' "$*" >&2
    exit 1
}
ours() {
    find /usr /etc /var/lib -xdev \( -iname '*zuis*' -o -iname '*zuinput*' -o -iname '*InputStreamShared*' \
        -o -iname '*ZuStream*' -o -iname '*EnableRemoteInput*' \) -not -path '/var/lib/dpkg/*' | LC_ALL=C sort
    getent group zuis-uinput || true
}

before=$(ours)
[ -z "$before" ] || fail "already here: $before"
export DEBIAN_FRONTEND=noninteractive
dpkg -i "$packages"/*.deb >/tmp/dpkg.log 2>&1 || {
    cat /tmp/dpkg.log
    fail "installing failed"
}

for file in $libraries/libInputStreamShared.so $libraries/zuis-tools/libZuStreamServer.so \
    /usr/sbin/EnableRemoteInput.sh /usr/lib/modules-load.d/zuis-uinput.conf /usr/lib/udev/rules.d/70-zuis-uinput.rules \
    /usr/share/man/man8/EnableRemoteInput.sh.8.gz /usr/share/man/man7/libInputStreamShared.7.gz; do
    [ -e "$file" ] || fail "$file is missing"
done
getent group zuis-uinput >/dev/null || fail "the group was not made"
[[ $(ldconfig -p) != *ZuStream* ]] || fail "others find the stand-in of the stack, too"
for package in libinputstreamshared zuis-tools; do
    depends=$(dpkg-query -W -f='${Depends}' $package)
    [[ $depends == *libevdev2* && $depends != *ustream* ]] || fail "$package depends on: $depends"
done
enable=$(EnableRemoteInput.sh --dry-run 2>&1) || true
[[ $enable == *"would install /etc/udev/rules.d/70-zuis-uinput.rules"* ]] ||
    fail "EnableRemoteInput.sh does not find its rule: $enable"
"$here/consume.sh" "$libraries"
# Without a display: the library and the stand-in are found, and the backend says what it lacks.
cd /
session=/usr/share/zuis-tools/sessions/demo.jsonl
env -u DISPLAY HOME=/nonexistent zuis-host play --backend xtest $session >/tmp/host.log 2>&1 &&
    fail "played without a display"
grep -q 'Failed to open X11 display' /tmp/host.log ||
    {
        cat /tmp/host.log
        fail "zuis-host did not get as far as the display"
    }
zuis-host show --stats $session >/dev/null

dpkg -P zuis-tools libinputstreamshared-dev libinputstreamshared >/tmp/dpkg.log 2>&1 ||
    {
        cat /tmp/dpkg.log
        fail "removing failed"
    }
! grep -i warning /tmp/dpkg.log || fail "removing left something"
left=$(ours)
[ -z "$left" ] || fail "left behind: $left"
