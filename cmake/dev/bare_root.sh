#!/bin/sh
# bare_root.sh COMMAND...: makes a minimal Debian of this release in a temporary folder, copies the tree to it, and runs the
# command there, as somebody who has just cloned it would: nothing that the tree needs is installed, and no .git is there.
set -eu
cd "$(dirname "$0")/../.."
. cmake/dev/build.sh

[ "$(id -u)" -eq 0 ] || fail "a root of its own needs root"
root=$(mktemp -d)

# The mounts are made in a namespace of their own, and go with it.
trap 'rm -rf --one-file-system "$root"' EXIT
mmdebstrap --quiet --variant=minbase "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$root"
mkdir -p "$root/home/newcomer/libqx_vosk"
tracked_files '*' | xargs -0 cp --parents -t "$root/home/newcomer/libqx_vosk"
cp /etc/resolv.conf "$root/etc/resolv.conf"
# shellcheck disable=SC2016 # for the shell in there
unshare --mount --propagation private sh -eu -c '
  root=$1
  shift
  mount -t proc proc "$root/proc"
  mount --rbind /dev "$root/dev"
  exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root chroot "$root" \
    sh -c "cd /home/newcomer/libqx_vosk && exec \"\$@\"" sh "$@"' sh "$root" "$@"
