#!/bin/sh
# on_a_copy.sh DIRECTORY COMMAND...: runs the command on a copy of this machine's file system, which is thrown away: an
# overlay, in a mount namespace of its own. DIRECTORY is /packages there, and there are no records. 77: cannot be had here.
set -eu
[ "$(id -u)" -eq 0 ] && unshare --mount true 2>/dev/null || exit 77
place=$(mktemp -d)
trap 'rmdir "$place"' EXIT
# shellcheck disable=SC2016 # for the shell in there
unshare --mount --propagation private sh -eu -c '
  place=$1 directory=$2
  shift 2
  mount -t tmpfs -o mode=0755 copy "$place"
  mkdir "$place/changes" "$place/work" "$place/root"
  cd "$place"
  mount -t overlay -o lowerdir=/,upperdir=changes,workdir=work copy root 2>/dev/null || exit 77
  # Whatever lies on another file system is not in the copy.
  [ -x root/usr/bin/dpkg ] && [ -f root/var/lib/dpkg/status ] || exit 77
  mount -t proc proc root/proc
  mount --rbind /dev root/dev
  mkdir -p root/packages
  mount --bind "$directory" root/packages
  rm -rf root/var/adm/vosk
  exec chroot root "$@"' sh "$place" "$@"
