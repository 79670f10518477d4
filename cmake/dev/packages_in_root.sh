#!/bin/sh
# packages_in_root.sh short|long|tmpfiles: runs inside a clean Debian root, where /packages holds first/*.deb, demo.c (the
# README's program) and, for the long form, second/*.deb, the same packages under a higher version, and another_qx_cu.c.
#   short     what a newcomer does: install, compile, run, read
#   long      and upgrade, put another libqx_cu in the place of ours, purge
#   tmpfiles  only install: here systemd-tmpfiles makes the directories
set -eu
export DEBIAN_FRONTEND=noninteractive LC_ALL=C
umask 022
cd /packages

fail() {
  echo "packages: $*" >&2
  exit 1
}

# dpkg's chatter is shown only when it fails.
package() {
  dpkg "$@" >log 2>&1 || {
    cat log >&2
    fail "failed: dpkg $*"
  }
}

directories_are_right() {
  for directory in /var/adm/vosk/stacks /var/adm/vosk/dumps; do
    [ "$(stat -c '%a %U' "$directory")" = '1777 root' ] || fail "$directory: $(stat -c '%a %U' "$directory")"
  done
}

# Who records and reads is nobody in particular.
as_user() {
  setpriv --reuid=65534 --regid=65534 --clear-groups "$@"
}

consumer_records() {
  as_user /usr/local/bin/demo >shown 2>&1 || fail "the program failed: $(cat shown)"
  identifier=$(sed -n 's/^2615-000 \([./0-9A-Za-z]\{42\}\)$/\1/p' shown)
  [ -n "$identifier" ] || fail "the program shows no identifier"
  as_user vkstkrpt | grep -q 'cannot read the settings /etc/orders.conf' || fail "the record cannot be read"
  as_user vosk show "$identifier" | grep -q 'cannot read the settings' || fail "the identifier leads to no record"
}

sums() {
  find /var/adm/vosk -type f -exec sha256sum {} + | sort
}

newcomer() {
  package -i first/*.deb
  directories_are_right
  # shellcheck disable=SC2046 # flags are words
  cc demo.c $(pkg-config --cflags --libs qx_vosk) -o /usr/local/bin/demo
  consumer_records
}

upgrade() {
  before=$(sums)
  package -i second/*.deb
  [ "$(sums)" = "$before" ] || fail "an upgrade changed what users recorded"
  directories_are_right
  consumer_records
}

# Whoever has a libqx_cu of his own packages it so; ours goes, programs go on, and new ones are built.
replacement() {
  library=other$(dpkg -L libqx-cu1 | grep 'libqx_cu[.]so[.]1$')
  mkdir -p other/DEBIAN "$(dirname "$library")"
  cc -shared -fPIC -Wl,-soname,libqx_cu.so.1 another_qx_cu.c -o "$library"
  cat >other/DEBIAN/control <<END
Package: another-qx-cu1
Version: 1
Architecture: $(dpkg --print-architecture)
Maintainer: Nobody <nobody@qx-vosk.invalid>
Description: another libqx_cu
Provides: libqx-cu-abi-1
Conflicts: libqx-cu1
Replaces: libqx-cu1
END
  package --build other other.deb
  echo '#include <qx_vosk.h>
  int main(void) { return vk_init_1(77) != VK_UNKNOWN_OPTION; }' >erring.c
  package --auto-deconfigure -i other.deb
  ! dpkg-query -W -f '${db:Status-Status}' libqx-cu1 2>&1 | grep -qx installed || fail "both libqx_cu are installed"
  for name in libqx-vosk1 libqx-vosk-dev qx-vosk-tools; do
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$name")" = installed ] || fail "$name wants our libqx_cu"
  done
  package --configure --pending
  consumer_records
  # shellcheck disable=SC2046 # flags are words
  cc erring.c $(pkg-config --cflags --libs qx_vosk) -o erring
  ./erring 2>shown || fail "the program that errs failed"
  grep -q '^another libqx_cu: 12, ' shown || fail "it is not the other libqx_cu that was called"
  package --force-depends --remove another-qx-cu1
  package -i second/libqx-cu1*.deb
}

purge() {
  names=$(for deb in second/*.deb; do dpkg-deb -f "$deb" Package; done)
  # shellcheck disable=SC2086 # a list of names
  package --purge $names
  rest=$(find /etc /usr /var -xdev \( -name '*qx[_-]vosk*' -o -name '*qx[_-]cu*' -o -name 'vosk*' -o -name vkstkrpt \) \
    ! -path /var/adm/vosk)
  [ -z "$rest" ] || fail "a purge leaves files: $rest"
  [ -n "$(sums)" ] || fail "a purge removed what users recorded"
  rm -f /var/adm/vosk/stacks/* /var/adm/vosk/dumps/*
  package -i second/*.deb
  # shellcheck disable=SC2086
  package --purge $names
  [ ! -d /var/adm/vosk ] || fail "a purge leaves empty directories"
}

case $1 in
short) newcomer ;;
long)
  newcomer
  upgrade
  replacement
  purge
  ;;
tmpfiles)
  command -v systemd-tmpfiles >/dev/null || fail "systemd-tmpfiles is missing"
  package -i first/libqx-cu1_*.deb first/libqx-vosk1_*.deb first/libqx-vosk-common_*.deb
  directories_are_right
  ! grep -q '^[^#].*[0-9][smhdw]$' /usr/lib/tmpfiles.d/qx_vosk.conf || fail "records would be removed by their age"
  ;;
esac
