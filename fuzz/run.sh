#!/bin/sh
# run.sh [SECONDS]: every fuzz target of build-fuzz, one after another. What a target finds anew goes to
# build-fuzz/corpus/TARGET; the seeds in fuzz/corpus/TARGET are only read.
set -eu
cd "$(dirname "$0")/.."

seconds=${1:-60}
case $seconds in
'' | *[!0-9]*)
  echo "dev: '$seconds' is not a number of seconds" >&2
  exit 2
  ;;
esac

failed=
ran=0
for target in build-fuzz/bin/fuzz_*; do
  [ -x "$target" ] || continue
  name=$(basename "$target")
  mkdir -p "build-fuzz/corpus/$name" "build-fuzz/crashes/$name"
  set -- "build-fuzz/corpus/$name"
  [ ! -d "fuzz/corpus/$name" ] || set -- "$@" "fuzz/corpus/$name"
  [ ! -f "fuzz/$name.dict" ] || set -- "$@" -dict="fuzz/$name.dict"
  echo "== $name, $seconds s"
  "$target" "$@" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
    -artifact_prefix="build-fuzz/crashes/$name/" || failed="$failed $name"
  ran=$((ran + 1))
done

[ "$ran" -gt 0 ] || {
  echo "dev: there is no fuzz target in build-fuzz/bin" >&2
  exit 1
}
[ -z "$failed" ] || {
  echo "dev: found something:$failed (see build-fuzz/crashes)" >&2
  exit 1
}
