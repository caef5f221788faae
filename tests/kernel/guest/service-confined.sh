#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# The chapter of the service's story that tries its walls: what the unit's directives keep it from.

# shellcheck disable=SC2016,SC2034,SC2154
confinedSteps=5
listener=vestrel-listener

statusLine() {
    [ "$(sed -n "s/^$1:[[:space:]]*//p" "/proc/$(mainProcess)/status")" = "$2" ]
}

showRights() {
    local set
    run "grep -E '^(Name|Uid|Cap|NoNewPrivs|Seccomp)' /proc/$(mainProcess)/status"
    check "it runs as root" statusLine Uid "$(printf '0\t0\t0\t0')"
    for set in CapInh CapPrm CapEff CapBnd CapAmb; do
        check "$set is empty" statusLine $set 0000000000000000
    done
    check "it cannot gain privileges" statusLine NoNewPrivs 1
    check "its system calls are filtered" statusLine Seccomp 2
    check "its capabilities are those of the unit: none" is CapabilityBoundingSet ''
}

namespaceOf() {
    readlink "/proc/$1/ns/$2"
}

ownNamespace() {
    [ "$(namespaceOf "$(mainProcess)" "$1")" != "$(namespaceOf 1 "$1")" ]
}

sharedNamespace() {
    [ "$(namespaceOf "$(mainProcess)" "$1")" = "$(namespaceOf 1 "$1")" ]
}

showNamespaces() {
    local name
    run "ls -l /proc/$(mainProcess)/ns | grep -o '[a-z]*:\\[.*' | sort -u"
    for name in mnt net uts; do
        check "its namespace '$name' is its own" ownNamespace $name
    done
    run "/guest/packet-filters $(controlGroup "$unit") $(controlGroup rsyslog.service)"
    check "it neither gets nor sends IP packets: a filter of its own stands at either end" \
        [ "$(/guest/packet-filters "$(controlGroup "$unit")")" = "1 in, 1 out" ]
    check "its user namespace is the machine's: the keyrings belong to that one" sharedNamespace user
}

controlGroup() {
    echo "/sys/fs/cgroup$(property ControlGroup "$1")"
}

inItsFiles() {
    nsenter -t "$(mainProcess)" -m -- "$@"
}

mountIs() {
    awk -v place="$1" -v option="$2" '$5 == place { options = "," $6 ","; found = index(options, "," option ",") }
        END { exit !found }' "/proc/$(mainProcess)/mountinfo"
}

readOnlyInItsFiles() {
    inItsFiles touch "$1/vestrel.integrity-tmp" 2>"$work/answer"
    grep -q "Read-only file system" "$work/answer"
}

showFiles() {
    local place
    run "awk '{ print \$5, \$6 }' /proc/$(mainProcess)/mountinfo | sort -u"
    check "its root is read-only" mountIs / ro
    check "its /run is not" mountIs /run rw
    for place in / /etc /etc/keys/ima /usr /var /sys/fs/cgroup; do
        check "nobody can write to its $place" readOnlyInItsFiles $place
        check "though others can" writableOutside $place
    done
    check "the disk is not in its /dev" inItsFiles [ ! -e /dev/vda ]
    check "though it is in the machine's" [ -b /dev/vda ]
}

# A control group's directory takes directories, not files.
writableOutside() {
    if [ "$1" = /sys/fs/cgroup ]; then
        mkdir "$1/vestrel-attempt" && rmdir "$1/vestrel-attempt"
    else
        touch "$1/vestrel.integrity-tmp" && rm "$1/vestrel.integrity-tmp"
    fi
}

# What confines the service, and nothing of how it is started.
confinement() {
    systemctl cat "$unit" | sed -n '/^\[Service\]/,/^\[Install\]/p' |
        grep -vE '^(#|\[|$)|^(Type|Exec[A-Za-z]*|Watchdog[A-Za-z]*|Restart[A-Za-z]*|RuntimeDirectory[A-Za-z]*)='
}

# Runs a command as a service of its own that is confined like the agent's.
confined() {
    local service=vestrel-confined.service output=/run/attempts-confined.out status=0
    {
        printf '[Service]\nType=oneshot\nExecStart=%s\n' "${*//%/%%}"
        printf 'StandardOutput=truncate:%s\nStandardError=append:%s\n' "$output" "$output"
        confinement
    } >"/run/systemd/system/$service"
    systemctl daemon-reload
    systemctl start "$service" || status=$?
    cat "$output"
    return $status
}

# How an attempt ends for a confined service. Outside, each of them succeeds.
endsOfAttempts() {
    cat <<'ENDS'
done: ask for the session keyring
done: read /proc/keys
done: make a Unix socket
done: write in /run
done: read /etc/keys
killed: mount
killed: be traced
killed: change root
killed: become a user
killed: give a file away
killed: raise a limit
killed: load a filter program
killed: set the clock
killed: set the host name
killed: read the kernel log
killed: run in real time
Operation not permitted: map memory to write and execute
Operation not permitted: make a user namespace
Operation not permitted: make a mount namespace
Operation not permitted: change personality
Address family not supported by protocol: make a netlink socket
Operation not permitted: make a setuid file
killed: have a call of another architecture answered
in vain: make a file that others can read
Read-only file system: write in /etc
Read-only file system: write in /etc/keys
Read-only file system: write in /var
Permission denied: write in /home
No such file or directory: see a file of /tmp
Read-only file system: set a tunable of the kernel
Read-only file system: make a control group
No such file or directory: open /dev/kmsg
No such file or directory: open the disk
No such file or directory: see the service manager
Permission denied: look at the kernel's modules
Connection refused: reach the network of the machine
ENDS
}

attemptEnded() {
    grep -qxF "$1$(printf '\t')$2" "$work/confined"
}

listens() {
    grep -q "@$listener\$" /proc/net/unix
}

tryWalls() {
    local end name
    touch /tmp/vestrel-seen
    mkdir -p /usr/lib/modules
    perl -MSocket -e 'socket(my $s, AF_UNIX, SOCK_STREAM, 0); bind($s, pack_sockaddr_un("\0$ARGV[0]"));
        listen($s, 5); sleep 600' "$listener" &
    await "somebody listens in the machine's network" listens
    run "confinement | paste -sd' ' | fold -s -w 88"
    run "/guest/attempts $listener >$work/free; grep -v '\tdone' $work/free || true"
    run "confined /guest/attempts $listener | tee $work/confined"
    kill $!
    check "whoever is not confined can do each of them" \
        [ "$(endsOfAttempts | wc -l)" = "$(grep -c "$(printf '\tdone$')" "$work/free")" ]
    while IFS= read -r end; do
        name=${end#*: } end=${end%%: *}
        check "confined: $name: $end" attemptEnded "$name" "$end"
    done < <(endsOfAttempts)
}

# A session keyring of its own holds nothing but the service manager's word on this start.
ownSessionKeyring() {
    run "confined keyctl show @s | tee $work/session"
    check "a confined service has a session keyring of its own" grep -q 'keyring: _ses$' "$work/session"
    check "which holds the identity of its start" grep -q 'user: invocation_id$' "$work/session"
    check "and no keyring of root's other processes" lacks "_uid" "$work/session"
    check "the agent's is of that kind" is KeyringMode private
    run "confined keyctl list %:.builtin_trusted_keys"
    check "it reads the kernel's keyrings as their owner" grep -q ' asymmetric: ' "$work/output"
}

lacks() {
    ! grep -qF -- "$1" "$2"
}

tellConfined() {
    tell showRights "The agent has no capability, cannot gain any, and its system calls are filtered"
    tell showNamespaces "Its mounts, network and host name are its own"
    tell showFiles "To the agent the file system is read-only but for /run"
    tell tryWalls "What is not the agent's business fails in a service that is confined like it"
    tell ownSessionKeyring "Its session keyring is its own, and the kernel's keyrings are within reach"
}
