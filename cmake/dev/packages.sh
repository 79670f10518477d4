#!/bin/sh
# packages.sh install GROUP...   installs the packages of these groups of dev-packages.txt that are missing
# packages.sh present GROUP...   succeeds if none is missing, as far as Debian's package system knows
# packages.sh list GROUP...      prints their names
set -eu
cd "$(dirname "$0")/../.."

action=$1
shift

for group in "$@"; do
  grep -q "^$group:" dev-packages.txt || {
    echo "dev: no package group '$group' in dev-packages.txt" >&2
    exit 2
  }
done

packages_of() {
  for group in "$@"; do
    sed -n "s/^$group://p" dev-packages.txt
  done | tr -s ' ' '\n' | sed '/^$/d' | sort -u
}

installed() {
  dpkg-query -W -f '${db:Status-Status}\n' "$1" 2>/dev/null | grep -qx installed
}

missing_of() {
  for package in $(packages_of "$@"); do
    installed "$package" || echo "$package"
  done
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif [ -t 0 ]; then
    sudo "$@"
  else
    sudo -n "$@" # nobody is there to type a password
  fi
}

install_packages() {
  if ! command -v dpkg-query >/dev/null; then
    echo "dev: not a Debian system; this needs what these packages hold:" >&2
    packages_of "$@" | tr '\n' ' ' >&2
    echo >&2
    return 0 # they may well be there under other names
  fi
  missing=$(missing_of "$@" | tr '\n' ' ')
  [ -n "$missing" ] || return 0
  if [ "$(id -u)" -ne 0 ] && ! command -v sudo >/dev/null; then
    echo "dev: these packages are missing: $missing" >&2
    echo "dev: run this as root, or install sudo, or let an administrator install them" >&2
    return 1
  fi
  echo "dev: installing $missing"
  log=$(mktemp)
  # An unreachable third-party source must not stop us; a package that cannot be had will.
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -o Acquire::Retries=3 update >"$log" 2>&1 </dev/null || true
  # shellcheck disable=SC2086 # a list of names
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300 \
    install --no-install-recommends $missing >>"$log" 2>&1 </dev/null || {
    cat "$log" >&2
    echo "dev: the packages could not be installed" >&2
    return 1
  }
  rm -f "$log"
}

case $action in
install) install_packages "$@" ;;
present) [ -z "$(missing_of "$@")" ] ;;
list) packages_of "$@" ;;
*)
  echo "usage: packages.sh install|present|list GROUP..." >&2
  exit 2
  ;;
esac
