#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# The way from the initramfs to the system on the disk, whose service manager then runs the command.
# A part of init: it does not return.

# shellcheck shell=dash
disk=/disk

# What the guest needs beside the disk, a service for its command, and the identity of a machine that
# has booted before: a first boot would do work that is nothing to us.
furnish() {
    cp -a /guest /trust /results /run-command "$disk/"
    cp -a /usr/bin/issue-cert "$disk/usr/local/bin/"
    cp /etc/hostname "$disk/etc/hostname"
    cp /guest/vestrel-guest.service /guest/vestrel-guest.target "$disk/etc/systemd/system/"
    mkdir -p "$disk/etc/systemd/system/vestrel-guest.target.wants"
    ln -s ../vestrel-guest.service "$disk/etc/systemd/system/vestrel-guest.target.wants/"
    ln -sf vestrel-guest.target "$disk/etc/systemd/system/default.target"
    mkdir -p "$disk/etc/sysctl.d"
    ln -s /dev/null "$disk/etc/sysctl.d/50-pid-max.conf" # more processes than this small kernel counts
    tr -d - </proc/sys/kernel/random/uuid >"$disk/etc/machine-id"
    touch "$disk/etc/.updated" "$disk/var/.updated"
}

# What somebody does who builds the image of a device: no service manager runs yet.
prepare() {
    [ -x "$disk/guest/prepare" ] || return 0
    mount -t proc proc "$disk/proc"
    chroot "$disk" /guest/prepare >"$disk/results/prepare.log" 2>&1 || {
        echo "init: /guest/prepare failed:"
        tail -n 20 "$disk/results/prepare.log"
        reboot -f
    }
    umount "$disk/proc"
}

mkdir "$disk"
mount -t ext4 -o noatime /dev/vda "$disk" || reboot -f
furnish
prepare
umount /sys/kernel/security /sys /run
mount --move /dev "$disk/dev"
umount /proc
exec switch_root "$disk" /sbin/init
