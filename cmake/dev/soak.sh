#!/bin/sh
# soak.sh [NAME...]: the programs of tests/proof and other tests in their long form, one after another, each with another
# random seed each time; QX_SEED=N repeats a run.
set -eu
cd "$(dirname "$0")/../.."
. cmake/dev/build.sh

[ $# -gt 0 ] || set -- fault_sweep_test kill_points_test many_processes_test kill_loop_test exhaustive_stack_test \
  exhaustive_trace_test annotate_test prune_test run_signals_test
build release "$@"
failed=
for name in "$@"; do
  echo "== $name"
  QX_SOAK=1 "build/tests/$name" || failed="$failed $name"
done
[ -z "$failed" ] || fail "found something:$failed"
