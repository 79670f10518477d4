#!/bin/sh
# packages_in_root.sh [long]: runs inside a clean Debian root, where /packages holds first/*.deb, demo.c (the README's
# program) and, for the long form, second/*.deb: the same packages under a higher version.
set -eu
cd /packages

fail() {
  echo "packages: $*" >&2
  exit 1
}

directories_are_right() {
  for directory in /var/adm/vosk/stacks /var/adm/vosk/dumps; do
    [ "$(stat -c '%a %U' "$directory")" = '1777 root' ] || fail "$directory: $(stat -c '%a %U' "$directory")"
  done
}

consumer_records() {
  ./demo 2>&1 | grep -q '^2615-000 [./0-9A-Za-z]\{42\}$' || fail "the program shows no identifier"
  vkstkrpt | grep -q 'cannot read the settings /etc/orders.conf' || fail "the record cannot be read"
}

sums() {
  find /var/adm/vosk -type f -exec sha256sum {} + | sort
}

dpkg -i first/*.deb
directories_are_right
# shellcheck disable=SC2046 # flags are words
cc demo.c $(pkg-config --cflags --libs qx_vosk) -o demo
consumer_records
[ "${1:-}" = long ] || exit 0

before=$(sums)
dpkg -i second/*.deb
[ "$(sums)" = "$before" ] || fail "an upgrade changed what users recorded"
directories_are_right
consumer_records

names=$(for deb in second/*.deb; do dpkg-deb -f "$deb" Package; done)
# shellcheck disable=SC2086 # a list of names
dpkg --purge $names
[ -z "$(find / -xdev -path /packages -prune -o -path /proc -prune -o \( -name '*qx_vosk*' -o -name '*qx_cu*' \) -print)" ] ||
  fail "a purge leaves files"
[ -n "$(sums)" ] || fail "a purge removed what users recorded"
rm -f /var/adm/vosk/stacks/* /var/adm/vosk/dumps/*
dpkg -i second/*.deb
# shellcheck disable=SC2086
dpkg --purge $names
[ ! -d /var/adm/vosk ] || fail "a purge leaves empty directories"
