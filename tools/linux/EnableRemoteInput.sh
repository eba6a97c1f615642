#!/bin/sh
# Gives users access to /dev/uinput, through which remote input makes its keyboard, mouse, gamepad and touch devices.
set -u

group=zuis-uinput
node=/dev/uinput
ruleName=70-zuis-uinput.rules
case $0 in
    */*) ruleSource=${0%/*}/$ruleName ;;
    *) ruleSource=./$ruleName ;;
esac
# Installed, the rule lies where udev finds it, too.
[ -r "$ruleSource" ] || ruleSource=${ruleSource%/*}/../lib/udev/rules.d/$ruleName
packagedRule=/usr/lib/udev/rules.d/$ruleName
ruleFile=/etc/udev/rules.d/$ruleName
moduleFile=/etc/modules-load.d/zuis-uinput.conf

dryRun=no
failed=no
changed=no
PATH=$PATH:/usr/sbin:/sbin
export LC_ALL=C
caller=$(id -u)

usage()
{
    cat <<END
usage: EnableRemoteInput.sh [--user NAME] [--dry-run]
       EnableRemoteInput.sh --status [--user NAME]
       EnableRemoteInput.sh --undo [--dry-run]

Gives users access to $node, so that remote input can make its input devices. Needs root:
  - makes the system group $group and puts the user into it,
  - installs $ruleFile: the group, and whoever sits at the machine, may use the device,
  - has the module uinput loaded at every start ($moduleFile),
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

say()
{
    printf '%s\n' "$*"
}

# A step that did not work: the others are still done, and the exit status tells.
complain()
{
    printf 'EnableRemoteInput.sh: %s\n' "$*" >&2
    failed=yes
}

die()
{
    code=$1
    shift
    printf 'EnableRemoteInput.sh: %s\n' "$*" >&2
    exit "$code"
}

# act WHAT COMMAND...: announces the step and takes it, or only announces it in a dry run.
act()
{
    what=$1
    shift
    if [ $dryRun = yes ]; then
        say "would $what"
        return 0
    fi
    say "$what"
    changed=yes
    "$@" || complain "failed: $what"
}

groupExists()
{
    getent group $group >/dev/null
}

isMember()
{
    id -nG -- "$1" 2>/dev/null | tr ' ' '\n' | grep -qx $group
}

udevRuns()
{
    [ -S /run/udev/control ] && command -v udevadm >/dev/null
}

# The device that the kernel offers, whether or not somebody made a node for it.
deviceExists()
{
    [ -e /sys/class/misc/uinput ]
}

nodeState()
{
    stat -c '%U:%G %a' $node
}

writeModuleFile()
{
    mkdir -p "${moduleFile%/*}" && echo uinput >$moduleFile && chmod 644 $moduleFile
}

installRule()
{
    mkdir -p "${ruleFile%/*}" && cp -- "$ruleSource" $ruleFile && chown root:root $ruleFile && chmod 644 $ruleFile
}

# Lets udev set the node's rights anew by the rules as they are now.
triggerUdev()
{
    udevadm control --reload &&
        udevadm trigger --action=change --subsystem-match=misc --sysname-match=uinput &&
        udevadm settle --timeout=60
}

openNode()
{
    chown root:$group $node && chmod 660 $node
}

# Back to the kernel's own rights; with the mode, lists of further users lose their effect as well.
closeNode()
{
    if command -v setfacl >/dev/null; then
        setfacl -b $node
    fi
    chown root:root $node && chmod 600 $node
}

enable()
{
    [ -r "$ruleSource" ] || die 1 "the rule file $ruleSource is missing: it belongs there, or beside this script."
    for user in $users; do
        id -u -- "$user" >/dev/null 2>&1 || die 1 "there is no user $user."
    done

    groupExists || act "make the system group $group" groupadd --system $group
    for user in $users; do
        if [ "$(id -u -- "$user")" = 0 ]; then
            say "$user has access in any case"
        elif ! isMember "$user"; then
            act "put $user into the group $group" usermod -a -G $group -- "$user"
            say "note: $user must log in anew for the group to count (the user at the screen has access at once)"
        fi
    done
    [ -n "$users" ] || say "note: nobody named, so nobody joins the group $group; use --user NAME if need be"

    if ! [ -f $moduleFile ] || [ "$(cat $moduleFile)" != uinput ]; then
        act "have the module uinput loaded at every start ($moduleFile)" writeModuleFile
    fi
    ruleIsNew=no
    if ! cmp -s -- "$ruleSource" $ruleFile; then
        act "install $ruleFile" installRule
        ruleIsNew=yes
    fi

    deviceExists || act "load the module uinput" modprobe uinput
    if [ $ruleIsNew = yes ] && udevRuns; then
        act "let udev apply the rule" triggerUdev
    fi
    # Without udev nobody else does it; and with it, this repairs what was changed by hand.
    if [ -c $node ]; then
        [ "$(nodeState)" = "root:$group 660" ] || act "set the rights of $node" openNode
    elif [ $dryRun = no ]; then
        complain "there is still no $node: does this kernel have uinput?"
    fi

    [ $failed = no ] || die 1 "not all of it worked; see above."
    if [ $dryRun = no ] && [ $changed = no ]; then
        say "everything was in place already"
    fi
}

undo()
{
    hadRule=no
    if [ -e $ruleFile ]; then
        hadRule=yes
        act "remove $ruleFile" rm -f $ruleFile
    fi
    [ ! -e $moduleFile ] || act "remove $moduleFile" rm -f $moduleFile
    if [ -c $node ] && { [ $hadRule = yes ] || [ "$(stat -c %G $node)" = $group ]; }; then
        act "take back the rights of $node" closeNode
        # Rules of others may grant access too: they have their say again.
        if udevRuns; then
            act "let udev apply the remaining rules" triggerUdev
        fi
    fi
    if [ -e $packagedRule ]; then
        say "note: the rule $packagedRule and the group $group stay until their package is removed"
    elif groupExists; then
        act "remove the group $group" groupdel $group
    fi

    [ $failed = no ] || die 1 "not all of it worked; see above."
    if [ $dryRun = no ] && [ $changed = no ]; then
        say "nothing was in place"
    fi
}

# The rest is about one user and its number. The calling user counts with the groups of this session, others as after a
# login.

canWrite()
{
    if [ "$caller" = "$2" ]; then
        [ -w $node ]
    else
        runuser -u "$1" -- test -w $node
    fi
}

explainRefusal()
{
    rights=$(nodeState)
    say "  its rights are $rights"
    if [ ! -e $ruleFile ]; then
        say "  the rule $ruleFile is not installed: run this script as root"
    elif [ "$rights" != "root:$group 660" ]; then
        say "  the rule is installed but was not applied: run this script as root again"
    elif ! isMember "$1"; then
        say "  $1 is not in the group $group: run this script as root with --user $1"
    elif [ "$caller" = "$2" ] && ! id -nG | tr ' ' '\n' | grep -qx $group; then
        say "  $1 is in the group $group, but logged in before that: log in anew"
    else
        say "  this is not a matter of the file's rights: a security module or a container may forbid it"
    fi
}

explainAccess()
{
    rights=$(nodeState)
    if [ "$2" = 0 ]; then
        say "  it is root"
    elif [ "$rights" = "root:$group 660" ] && isMember "$1"; then
        say "  through the group $group"
    else
        say "  through the node's rights ($rights) or the seat at which it is logged in"
    fi
}

status()
{
    number=$(id -u -- "$1" 2>/dev/null) || die 1 "there is no user $1."
    [ "$caller" = 0 ] || [ "$caller" = "$number" ] || die 1 "only root can tell for another user than the calling one."
    if [ ! -c $node ]; then
        say "$1: no access, there is no $node"
        if deviceExists; then
            say "  the module is loaded, but nobody made the node: is this a container that does not have the device?"
        else
            say "  the module uinput is not loaded, or this kernel does not have it: run this script as root"
        fi
        return 1
    fi
    if canWrite "$1" "$number"; then
        say "$1: has access to $node"
        explainAccess "$1" "$number"
        return 0
    fi
    say "$1: no access to $node"
    explainRefusal "$1" "$number"
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
        --dry-run) dryRun=yes ;;
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
[ $dryRun = yes ] || [ "$caller" = 0 ] ||
    die 1 "this needs root: run it with sudo (or see what it would do with --dry-run)."
$action
