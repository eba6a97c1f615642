#!/bin/bash
# Tests tools/linux/EnableRemoteInput.sh on a real kernel. It changes users, rules and modules, hence only in the guest:
#   scripts/guest/guest run [--udev] -- tests/kernel/enable-remote-input-test.sh
set -u
export LC_ALL=C

source=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../tools/linux" && pwd)
user=injector
failures=0

if [[ $EUID != 0 ]] || ! grep -qw zuis_guest /proc/cmdline; then
    echo "enable-remote-input-test.sh changes the machine that it runs on: run it with scripts/guest/guest run" >&2
    exit 1
fi

# Files of the machine keep its users' rights, which may shut another user out: work on copies. The directory is left as
# root, lest a relative path hide something.
dir=$(mktemp -d /run/enable-remote-input.XXXXXX)
chmod 755 "$dir"
cp "$source"/{EnableRemoteInput.sh,70-zuis-uinput.rules} "$dir/"
chmod 755 "$dir/EnableRemoteInput.sh"
cd /
enable=$dir/EnableRemoteInput.sh

printf 'N: probe\nI: 0003 0001 0001 0001\nB: 01 00 00 00 40 00 00 00 00\n' >"$dir/probe"
useradd "$user" || exit 1

# expect WHAT WANTED GOT: a text; WANTED is a pattern.
expect() {
    # shellcheck disable=SC2053
    if [[ $3 == $2 ]]; then
        echo "ok: $1"
    else
        printf 'FAILED: %s\n  wanted: %s\n  got:    %s\n' "$1" "$2" "$3"
        failures=$((failures + 1))
    fi
}

# Output and exit status of a command, as "status:output".
outcome() {
    local text code
    text=$("$@" 2>&1)
    code=$?
    echo "$code:$text"
}

# All that the script may touch.
state() {
    cat /etc/group /etc/gshadow
    find /etc/udev /etc/modules-load.d -type f -exec md5sum {} + | sort
    stat -c '%n %U:%G %a' /dev/uinput
}

# unchanged WHAT STATE: is it still as in STATE?
unchanged() {
    local now
    now=$(state)
    expect "$1" "" "$(diff <(echo "$2") <(echo "$now"))"
}

as_user() {
    setpriv --reuid "$user" --regid "$user" "$@"
}

# Status and output of making a device as the user after a login. A device that was made has a node, which is not the
# user's to read.
probe() {
    outcome as_user --init-groups evemu-device "$dir/probe"
}

udev_runs() {
    pgrep -x systemd-udevd >/dev/null
}

start_udev() {
    /lib/systemd/systemd-udevd --daemon 2>/dev/null && udevadm settle --timeout=300
}

stop_udev() {
    udevadm control --exit
    while udev_runs; do sleep 0.05; done
    # Left behind by udevd, the socket would make it look alive.
    rm -f /run/udev/control
}

readonly refused="*could not create device: -1" injected="*opening /dev/input/event*"
readonly opened="root:zuis-uinput 660"

# Nobody but the script itself sets the node's rights here, and loads the module.
without_udev() {
    local before
    before=$(state)
    rmmod uinput
    expect "no module: --status tells so" "1:$user: no access, there is no /dev/uinput*not loaded*" \
        "$(outcome as_user --clear-groups "$enable" --status)"
    expect "no module, no udev: enable" "0:*load the module uinput*" "$(outcome "$enable" --user "$user")"
    expect "no udev: the user injects" "$injected" "$(probe)"
    expect "no udev: undo" "0:*" "$(outcome "$enable" --undo)"
    expect "no udev: refused again" "$refused" "$(probe)"
    unchanged "no udev: everything is as before" "$before"
}

# The rule by itself, without the script's help: at the start of udevd, when the device appears, and for the seat.
check_rule() {
    chown root:root /dev/uinput
    stop_udev
    start_udev
    expect "the rule: the node has its rights from the start" "$opened" "$(stat -c '%U:%G %a' /dev/uinput)"
    rmmod uinput
    modprobe uinput
    udevadm settle --timeout=300
    expect "the rule: and when the module is loaded" "$opened" "$(stat -c '%U:%G %a' /dev/uinput)"
    # As for a device that is new: what udev remembers of it holds the tag already.
    rm "/run/udev/data/c$(cat /sys/class/misc/uinput/dev)"
    expect "the rule: and its tag is seen by the seat's rules" "*run: 'uaccess'*" \
        "$(udevadm test --action=add /sys/class/misc/uinput 2>&1)"
}

with_udev() {
    local before after
    before=$(state)
    expect "refused before" "$refused" "$(probe)"
    expect "--status tells so" "1:$user: no access*not installed*" "$(outcome as_user --clear-groups "$enable" --status)"
    expect "only root may enable" "1:*needs root*" "$(outcome as_user --clear-groups "$enable")"
    expect "an unknown user is refused" "1:*no user nobody-of-that-name*" \
        "$(outcome "$enable" --user nobody-of-that-name)"
    expect "a dry run names every step" "0:*would make*would put $user*would *modules-load.d*would install*" \
        "$(outcome "$enable" --user "$user" --dry-run)"
    unchanged "so far nothing has changed" "$before"

    # As sudo calls it.
    expect "enable" "0:*" "$(outcome env SUDO_USER="$user" "$enable")"
    expect "the same user injects" "$injected" "$(probe)"
    expect "--status of a new login" "0:$user: has access*group zuis-uinput" \
        "$(outcome as_user --init-groups "$enable" --status)"
    expect "--status of an old login" "1:$user: no access*log in anew" \
        "$(outcome as_user --clear-groups "$enable" --status)"
    expect "--status of somebody else" "1:nobody: no access*not in the group*" \
        "$(outcome "$enable" --status --user nobody)"
    after=$(state)
    expect "a second run finds everything in place" "0:everything was in place already" \
        "$(outcome "$enable" --user "$user")"
    unchanged "and changes nothing" "$after"
    chown root:root /dev/uinput
    expect "a third run repairs the node" "0:set the rights*" "$(outcome "$enable" --user "$user")"
    check_rule
    expect "a dry undo names every step" "0:would remove*would take back*would remove the group*" \
        "$(outcome "$enable" --undo --dry-run)"
    unchanged "and leaves everything as it is" "$after"

    expect "undo" "0:*" "$(outcome "$enable" --undo)"
    expect "refused again" "$refused" "$(probe)"
    unchanged "everything is as before" "$before"
    expect "a second undo has nothing to do" "0:nothing was in place" "$(outcome "$enable" --undo)"
}

# The seat's rules come with systemd, which a machine without it does not have: then a rule like the one that counts.
[[ -e /lib/udev/rules.d/73-seat-late.rules ]] ||
    echo 'TAG=="uaccess", ENV{MAJOR}!="", RUN{builtin}+="uaccess"' >/lib/udev/rules.d/73-seat-late.rules

had_udev=no
if udev_runs; then
    had_udev=yes
    stop_udev
fi
without_udev
start_udev
with_udev
[[ $had_udev == yes ]] || stop_udev

userdel "$user"
if ((failures)); then
    echo "$failures checks failed"
    exit 1
fi
echo "all checks passed"
