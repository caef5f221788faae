#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Proves that the guest is the ground the other tests stand on: keyrings, trust, notifications, IMA.

# shellcheck shell=dash disable=SC3043
trust=${VESTREL_TRUST:?}
failures=0

check() {
    local title=$1
    shift
    if "$@" >/tmp/check.out 2>&1; then
        echo "ok: $title"
    else
        echo "FAILED: $title"
        sed 's/^/    /' /tmp/check.out
        failures=$((failures + 1))
    fi
}

contains() {
    local expected=$1
    shift
    "$@" 2>&1 | tee /tmp/contains.out
    grep -qF -- "$expected" /tmp/contains.out || {
        echo "without: $expected"
        return 1
    }
}

holds() {
    contains "asymmetric: $(cat "$trust/$2.description")" keyctl list "%:$1"
}

add() {
    keyctl padd asymmetric "" "%:$1" <"$trust/$2.der"
}

refuses() {
    local keyring=$1 certificate=$2 reason=$3
    add "$keyring" "$certificate" >/tmp/refuses.out 2>&1 && {
        echo "accepted: $(cat /tmp/refuses.out)"
        return 1
    }
    contains "$reason" cat /tmp/refuses.out
}

listed() {
    grep -E "^[0-9a-f]{8} .* keyring +$1: " /proc/keys
}

serials() {
    keyctl list "%:$1" | grep -cF "asymmetric: $(cat "$trust/$2.description")"
}

twinDisplaces() {
    local first second
    first=$(add .ima twin-1) && second=$(add .ima twin-2) || return 1
    echo "serials: $first, then $second"
    [ "$first" != "$second" ] && [ "$(serials .ima twin-1)" = 1 ] && keyctl list %:.ima | grep -q "^ *$second:"
}

# The watcher says nothing when it is ready, so keys are linked until it reports one.
notified() {
    local serial watcher ring round=0
    ring=$(keyctl id "%:$1") || return 1
    : >/tmp/watch.out
    keyctl watch "%:$1" >/tmp/watch.out 2>&1 &
    watcher=$!
    while [ $round -lt 100 ] && ! grep -q "^$ring link " /tmp/watch.out; do
        kill -0 $watcher || break
        serial=$(add "$1" "$2") || break
        keyctl unlink "$serial" "%:$1" || break
        usleep 10000
        round=$((round + 1))
    done
    kill $watcher
    contains "$ring link " head -n 20 /tmp/watch.out
}

policyTakes() {
    echo "$1" >/sys/kernel/security/ima/policy
    contains "$1" cat /sys/kernel/security/ima/policy
}

check "the root directory is 0755" contains "755 0 0" stat -c '%a %u %g' /
for keyring in .ima .secondary_trusted_keys .builtin_trusted_keys .machine; do
    check "/proc/keys has the keyring $keyring" listed "$(echo "$keyring" | sed 's/\./\\./')"
    check "keyctl finds $keyring by its name" contains "keyring: $keyring" keyctl show "%:$keyring"
done
check "the authority is in .builtin_trusted_keys" holds .builtin_trusted_keys ca
check "the unknown authority is not" sh -c '! keyctl list %:.builtin_trusted_keys | grep -F stranger'
check ".secondary_trusted_keys links to .builtin_trusted_keys" \
    contains "keyring: .builtin_trusted_keys" keyctl list %:.secondary_trusted_keys
for certificate in alpha beta gamma replacement leaf twin-1; do
    check ".ima takes $certificate" add .ima "$certificate"
    check ".ima shows $certificate by its description" holds .ima "$certificate"
done
check "of two certificates with one description the later displaces the earlier" twinDisplaces
check ".secondary_trusted_keys takes alpha" add .secondary_trusted_keys alpha
check ".ima refuses a stranger" refuses .ima stranger "Required key not available"
check ".secondary_trusted_keys refuses a stranger" refuses .secondary_trusted_keys stranger "Required key not available"
for keyring in .builtin_trusted_keys .machine; do
    check "$keyring refuses whatever it is" refuses "$keyring" alpha "Permission denied"
done
check ".ima notifies its watcher" notified .ima alpha
check "the IMA policy can be written and read" policyTakes "appraise func=FILE_CHECK mask=MAY_READ fowner=1001"

echo "$failures failures"
[ "$failures" -eq 0 ]
