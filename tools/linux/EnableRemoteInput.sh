#!/bin/sh
# Gives users access to /dev/uinput, through which remote input makes its keyboard, mouse, gamepad and touch devices.
set -u

group=zuis-uinput
node=/dev/uinput
rule_name=70-zuis-uinput.rules
case $0 in
*/*) rule_source=${0%/*}/$rule_name ;;
*) rule_source=./$rule_name ;;
esac
# Installed, the rule lies where udev finds it, too.
[ -r "$rule_source" ] || rule_source=${rule_source%/*}/../lib/udev/rules.d/$rule_name
packaged_rule=/usr/lib/udev/rules.d/$rule_name
rule_file=/etc/udev/rules.d/$rule_name
module_file=/etc/modules-load.d/zuis-uinput.conf

dry_run=no
failed=no
changed=no
PATH=$PATH:/usr/sbin:/sbin
export LC_ALL=C
caller=$(id -u)

usage() {
    cat <<END
usage: EnableRemoteInput.sh [--user NAME] [--dry-run]
       EnableRemoteInput.sh --status [--user NAME]
       EnableRemoteInput.sh --undo [--dry-run]

Gives users access to $node, so that remote input can make its input devices. Needs root:
  - makes the system group $group and puts the user into it,
  - installs $rule_file: the group, and whoever sits at the machine, may use the device,
  - has the module uinput loaded at every start ($module_file),
  - loads the module and applies the rule now.
A second run changes nothing.

  --user NAME  the user to give access to; may be given several times. Otherwise it is who called sudo or pkexec.
  --status     tell whether the user can open $node for writing, and why or why not. Needs no root, save for another
               user than the calling one. Exit status 0: yes; 1: no.
  --undo       take all of it back: the rule, the module's entry and the group. The module stays loaded.
  --dry-run    say what would be done, and do nothing
  --help       this text

Exit status: 0 done (or yes); 1 failed (or no); 2 usage error.
END
}

say() {
    printf '%s\n' "$*"
}

# A step that did not work: the others are still done, and the exit status tells.
complain() {
    printf 'EnableRemoteInput.sh: %s\n' "$*" >&2
    failed=yes
}

die() {
    code=$1
    shift
    printf 'EnableRemoteInput.sh: %s\n' "$*" >&2
    exit "$code"
}

# act WHAT COMMAND...: announces the step and takes it, or only announces it in a dry run.
act() {
    what=$1
    shift
    if [ $dry_run = yes ]; then
        say "would $what"
        return 0
    fi
    say "$what"
    changed=yes
    "$@" || complain "failed: $what"
}

group_exists() {
    getent group $group >/dev/null
}

is_member() {
    id -nG -- "$1" 2>/dev/null | tr ' ' '\n' | grep -qx $group
}

udev_runs() {
    [ -S /run/udev/control ] && command -v udevadm >/dev/null
}

# The device that the kernel offers, whether or not somebody made a node for it.
device_exists() {
    [ -e /sys/class/misc/uinput ]
}

node_state() {
    stat -c '%U:%G %a' $node
}

write_module_file() {
    mkdir -p "${module_file%/*}" && echo uinput >$module_file && chmod 644 $module_file
}

install_rule() {
    mkdir -p "${rule_file%/*}" && cp -- "$rule_source" $rule_file && chown root:root $rule_file && chmod 644 $rule_file
}

# Lets udev set the node's rights anew by the rules as they are now.
trigger_udev() {
    udevadm control --reload &&
        udevadm trigger --action=change --subsystem-match=misc --sysname-match=uinput &&
        udevadm settle --timeout=60
}

open_node() {
    chown root:$group $node && chmod 660 $node
}

# Back to the kernel's own rights; with the mode, lists of further users lose their effect as well.
close_node() {
    if command -v setfacl >/dev/null; then
        setfacl -b $node
    fi
    chown root:root $node && chmod 600 $node
}

enable() {
    [ -r "$rule_source" ] || die 1 "the rule file $rule_source is missing: it belongs there, or beside this script."
    for user in $users; do
        id -u -- "$user" >/dev/null 2>&1 || die 1 "there is no user $user."
    done

    group_exists || act "make the system group $group" groupadd --system $group
    for user in $users; do
        if [ "$(id -u -- "$user")" = 0 ]; then
            say "$user has access in any case"
        elif ! is_member "$user"; then
            act "put $user into the group $group" usermod -a -G $group -- "$user"
            say "note: $user must log in anew for the group to count (the user at the screen has access at once)"
        fi
    done
    [ -n "$users" ] || say "note: nobody named, so nobody joins the group $group; use --user NAME if need be"

    if ! [ -f $module_file ] || [ "$(cat $module_file)" != uinput ]; then
        act "have the module uinput loaded at every start ($module_file)" write_module_file
    fi
    rule_is_new=no
    if ! cmp -s -- "$rule_source" $rule_file; then
        act "install $rule_file" install_rule
        rule_is_new=yes
    fi

    device_exists || act "load the module uinput" modprobe uinput
    if [ $rule_is_new = yes ] && udev_runs; then
        act "let udev apply the rule" trigger_udev
    fi
    # Without udev nobody else does it; and with it, this repairs what was changed by hand.
    if [ -c $node ]; then
        [ "$(node_state)" = "root:$group 660" ] || act "set the rights of $node" open_node
    elif [ $dry_run = no ]; then
        complain "there is still no $node: does this kernel have uinput?"
    fi

    [ $failed = no ] || die 1 "not all of it worked; see above."
    if [ $dry_run = no ] && [ $changed = no ]; then
        say "everything was in place already"
    fi
}

undo() {
    had_rule=no
    if [ -e $rule_file ]; then
        had_rule=yes
        act "remove $rule_file" rm -f $rule_file
    fi
    [ ! -e $module_file ] || act "remove $module_file" rm -f $module_file
    if [ -c $node ] && { [ $had_rule = yes ] || [ "$(stat -c %G $node)" = $group ]; }; then
        act "take back the rights of $node" close_node
        # Rules of others may grant access too: they have their say again.
        if udev_runs; then
            act "let udev apply the remaining rules" trigger_udev
        fi
    fi
    if [ -e $packaged_rule ]; then
        say "note: the rule $packaged_rule and the group $group stay until their package is removed"
    elif group_exists; then
        act "remove the group $group" groupdel $group
    fi

    [ $failed = no ] || die 1 "not all of it worked; see above."
    if [ $dry_run = no ] && [ $changed = no ]; then
        say "nothing was in place"
    fi
}

# The rest is about one user and its number. The calling user counts with the groups of this session, others as after a
# login.

can_write() {
    if [ "$caller" = "$2" ]; then
        [ -w $node ]
    else
        runuser -u "$1" -- test -w $node
    fi
}

explain_refusal() {
    rights=$(node_state)
    say "  its rights are $rights"
    if [ ! -e $rule_file ]; then
        say "  the rule $rule_file is not installed: run this script as root"
    elif [ "$rights" != "root:$group 660" ]; then
        say "  the rule is installed but was not applied: run this script as root again"
    elif ! is_member "$1"; then
        say "  $1 is not in the group $group: run this script as root with --user $1"
    elif [ "$caller" = "$2" ] && ! id -nG | tr ' ' '\n' | grep -qx $group; then
        say "  $1 is in the group $group, but logged in before that: log in anew"
    else
        say "  this is not a matter of the file's rights: a security module or a container may forbid it"
    fi
}

explain_access() {
    rights=$(node_state)
    if [ "$2" = 0 ]; then
        say "  it is root"
    elif [ "$rights" = "root:$group 660" ] && is_member "$1"; then
        say "  through the group $group"
    else
        say "  through the node's rights ($rights) or the seat at which it is logged in"
    fi
}

status() {
    number=$(id -u -- "$1" 2>/dev/null) || die 1 "there is no user $1."
    [ "$caller" = 0 ] || [ "$caller" = "$number" ] || die 1 "only root can tell for another user than the calling one."
    if [ ! -c $node ]; then
        say "$1: no access, there is no $node"
        if device_exists; then
            say "  the module is loaded, but nobody made the node: is this a container that does not have the device?"
        else
            say "  the module uinput is not loaded, or this kernel does not have it: run this script as root"
        fi
        return 1
    fi
    if can_write "$1" "$number"; then
        say "$1: has access to $node"
        explain_access "$1" "$number"
        return 0
    fi
    say "$1: no access to $node"
    explain_refusal "$1" "$number"
    return 1
}

action=enable
users=
while [ $# -gt 0 ]; do
    case $1 in
    --user)
        [ $# -ge 2 ] || die 2 "--user needs a name."
        # Names are kept as a list of words.
        case $2 in
        '' | -* | *[!A-Za-z0-9._@\\-]*) die 2 "not the name of a user: $2" ;;
        esac
        users="$users $2"
        shift
        ;;
    --status | --undo)
        [ "$action" = enable ] || die 2 "--status and --undo exclude each other."
        action=${1#--}
        ;;
    --dry-run) dry_run=yes ;;
    --help | -h)
        usage
        exit 0
        ;;
    *) die 2 "unknown argument $1; see --help" ;;
    esac
    shift
done

if [ -z "$users" ]; then
    users=${SUDO_USER:-}
    [ -n "$users" ] || [ -z "${PKEXEC_UID:-}" ] || users=$(id -nu -- "$PKEXEC_UID")
fi

if [ "$action" = status ]; then
    result=0
    for user in ${users:-$(id -nu)}; do
        status "$user" || result=1
    done
    exit $result
fi
[ $dry_run = yes ] || [ "$caller" = 0 ] ||
    die 1 "this needs root: run it with sudo (or see what it would do with --dry-run)."
$action
