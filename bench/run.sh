#!/bin/sh
# run.sh [ARG...]: runs the benchmarks on a node of their own: a private mount namespace with tmpfs on /var and /run, and a
# /dev with a log socket that the benchmark drains. The environment is empty: a getenv costs by the number of variables.
set -eu
cd "$(dirname "$0")/.."
program=$PWD/build-bench/bin/qx_bench

[ -x "$program" ] || {
  echo "dev: $program is not built" >&2
  exit 1
}
namespace="unshare --mount --propagation private"
[ "$(id -u)" -eq 0 ] || namespace="$namespace --map-root-user"
# shellcheck disable=SC2086,SC2016 # words on purpose; the inner shell expands
exec $namespace sh -c '
  set -eu
  mount -t tmpfs tmpfs /var
  mount -t tmpfs tmpfs /run
  mkdir -p /run/devices /run/systemd/journal
  mount --rbind /dev /run/devices
  mount -t tmpfs tmpfs /dev
  for device in null zero random urandom; do
    : >"/dev/$device"
    mount --bind "/run/devices/$device" "/dev/$device"
  done
  exec env -i "$@"' sh "$program" "$@"
