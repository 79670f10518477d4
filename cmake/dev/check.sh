#!/bin/sh
# check.sh [PART...]: what a change must pass besides the tests. Every part runs, also after one has failed.
set -eu
cd "$(dirname "$0")/../.."
. cmake/dev/build.sh

# A process whose addresses are laid out too randomly can collide with the sanitizers' shadow memory.
without_aslr() {
  if setarch -R true 2>/dev/null; then
    setarch -R "$@"
  else
    "$@"
  fi
}

sanitized_tests() {
  preset=$1
  shift
  without_aslr ctest --preset "$preset" --output-on-failure --no-tests=error -j "$jobs" "$@"
}

part_format() {
  tracked_files '*.h' '*.hpp' '*.c' '*.cc' | xargs -0 clang-format --dry-run -Werror
}

# In CI without the tests' programs: they take longer to build than all the rest, and say nothing about the product.
part_clang() {
  if [ -n "${CI:-}" ]; then
    build clang lib/all messages/all libqx_cu/all tools/all examples/all
  else
    build clang
  fi
}

# clang-tidy by the clang build's compile commands, and over the sources that it generates. In CI over the libraries: the
# tools take three times as long, for the standard library's containers.
part_tidy() {
  build clang lib/all messages/all libqx_cu/all tools/all
  folders='lib|utils|messages|libqx_cu'
  [ -n "${CI:-}" ] || folders="$folders|tools"
  status=0
  sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build-clang/compile_commands.json | sort -u |
    grep -E "^$PWD/($folders)/" | tr '\n' '\0' |
    xargs -0 -n 1 -P "$jobs" clang-tidy -p build-clang --quiet >build-clang/tidy.log 2>&1 || status=$?
  sed '/ warnings* generated\.$/d; /^Suppressed /d; /^Use -header-filter/d' build-clang/tidy.log
  return "$status"
}

# Each warning that stays is listed with its reason.
part_cppcheck() {
  need_packages cppcheck
  tracked_files 'lib/*.cc' 'utils/*.cc' 'messages/*.cc' 'libqx_cu/*.cc' 'tools/*.cc' |
    xargs -0 cppcheck --quiet -j "$jobs" --language=c++ --std=c++20 --library=posix,gnu --error-exitcode=1 \
      --enable=warning,performance,portability --suppressions-list=cmake/dev/cppcheck.txt \
      -I include -I . -I messages -I tools
}

# The seeds of the fuzz targets: the tests themselves bring an allocator that valgrind cannot see through.
part_valgrind() {
  need_packages valgrind
  build release fuzz_targets
  for seeds in fuzz/corpus/*; do
    printf '%s: ' "${seeds##*/}"
    valgrind --quiet --error-exitcode=99 --leak-check=full "build/bin/${seeds##*/}" -runs=100 "$seeds"
  done
}

# Of what is read, nothing is used before it was written: by the fuzz targets' seeds and plain C programs, for the C++
# library is not instrumented. Not the tools' reader, which keeps that library's trees.
part_msan() {
  need_packages fuzz
  build msan qx_vosk qx_cu fuzz_targets
  for seeds in fuzz/corpus/*; do
    [ "${seeds##*/}" != fuzz_stack_reader ] || continue
    printf '%s: ' "${seeds##*/}"
    without_aslr "build-msan/bin/${seeds##*/}" "$seeds"
  done
  without_aslr sh cmake/dev/c_programs.sh build-msan clang -fsanitize=memory -fno-omit-frame-pointer -g
}

# In CI the proofs, which take every road of the library, whatever fails on it, and the readers: the other tests take three
# times as long to build as these.
part_asan() {
  only=
  if [ -n "${CI:-}" ]; then
    folders='proof reader'
    only="-L ^folder-($(echo "$folders" | tr ' ' '|'))\$"
    # shellcheck disable=SC2046,SC2086 # words on purpose
    build asan $(printf 'tests/%s/all ' $folders)
  else
    build asan
  fi
  # shellcheck disable=SC2086 # words on purpose
  UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1} sanitized_tests asan $only
}

# The tests that start threads: the library promises something only to those that take turns.
part_tsan() {
  build tsan threads_tests
  TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1} sanitized_tests tsan -L "^threads\$"
}

parts="format clang tidy cppcheck asan tsan msan valgrind"
[ $# -gt 0 ] || eval "set -- $parts"
for part in "$@"; do
  case " $parts " in
  *" $part "*) ;;
  *)
    echo "dev: no check '$part'; there are: $parts" >&2
    exit 2
    ;;
  esac
done

need_packages build test check
failed=
for part in "$@"; do
  echo "== check: $part"
  # A subshell of its own, so that "set -e" stays in force inside.
  set +e
  (
    set -e
    "part_$part"
  )
  status=$?
  set -e
  [ "$status" -eq 0 ] || failed="$failed $part"
done
[ -z "$failed" ] || fail "check failed:$failed"
echo "== check: all passed ($*)"
