#!/bin/sh
# c_programs.sh BUILD CC [FLAG...]: compiles the examples and the manual's programs, all plain C, against the libraries of
# BUILD, and runs each over empty directories of its own, with the trace off and on. A program may end as it likes, a
# sanitizer in it may not speak up.
set -eu
cd "$(dirname "$0")/../.."
. cmake/dev/build.sh

unshare --mount true 2>/dev/null || fail "programs that record need a mount namespace here, and so root"
libraries=$PWD/$1/lib
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cp examples/*.c tests/syslog/both_roads.c "$work"
for page in man/*.3; do
  # The display below EXAMPLES, as its reader sees it.
  sed -n '/^\.Sh EXAMPLES$/,/^\.Ed$/{/^\./d;s/^\\&//;s/\\e/\\/g;p}' "$page" >"$work/$(basename "$page").c"
done
find "$work" -name '*.c' -size 0 -delete # pages that only lead to another

ran=0
for source in "$work"/*.c; do
  name=$(basename "$source" .c)
  printf '%s: ' "$name"
  "$@" -std=gnu11 -Iinclude "$source" -o "$work/program" -L"$libraries" -Wl,-rpath,"$libraries" -lqx_vosk -lqx_cu
  for trace in off on; do
    status=0
    # shellcheck disable=SC2016 # for the shell in there
    unshare --mount --propagation private sh -eu -c '
      mount -t tmpfs private /var
      mkdir -p -m 1777 /var/adm/vosk/stacks /var/adm/vosk/dumps
      [ "$1" = off ] || export VOSKDEBUG=/var/trace
      "$2" /no/such/file >/var/output 2>&1 || status=$?
      cat /var/output >"$3"
      exit "${status:-0}"' sh "$trace" "$work/program" "$work/output" || status=$?
    if grep -q 'Sanitizer' "$work/output" || [ "$status" -gt 100 ]; then
      cat "$work/output"
      fail "$name ended with $status, trace $trace"
    fi
  done
  ran=$((ran + 1))
  echo "fine"
done
echo "$ran programs"
[ "$ran" -gt 20 ] || fail "programs are missing"
