#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# How a guest's results leave it: through virtio ports, found by their names.

# shellcheck shell=dash disable=SC3043
port() {
    local entry
    for entry in /sys/class/virtio-ports/*; do
        [ "$(cat "$entry/name")" = "$1" ] && echo "/dev/${entry##*/}" && return
    done
    echo "no virtio port named $1" >&2
    return 1
}

sendResults() {
    echo "$1" >/results/status
    tar -C /results -cf - . >"$(port results)"
}
