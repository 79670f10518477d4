#!/bin/sh
# run.sh [ARG...]: every benchmark program of build-bench; arguments go to each.
set -eu
cd "$(dirname "$0")/.."

ran=0
for program in build-bench/bin/bench_*; do
  [ -x "$program" ] || continue
  "$program" "$@"
  ran=$((ran + 1))
done
[ "$ran" -gt 0 ] || {
  echo "dev: there is no benchmark in build-bench/bin" >&2
  exit 1
}
