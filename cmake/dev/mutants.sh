#!/bin/sh
# mutants.sh [--sample N | --all] [--seed N] [--minutes N]: puts small faults into the library, one at a time, and prints
# how many of them the tests notice. Works in build-mutants, where it goes on when it is called again with the seed that
# it printed: what is known of a mutant is kept until its sources change, and a survivor until the tests do.
set -eu
cd "$(dirname "$0")/../.."
. cmake/dev/build.sh

area=$PWD/build-mutants
mkdir -p "$area"

# copy_to FOLDER PATTERN...: these files of the tree; those that are equal already keep their times, and what is no longer
# in the tree goes.
copy_to() {
  folder=$1
  shift
  mkdir -p "$folder"
  tracked_files "$@" | LC_ALL=C sort -zu >"$area/files"
  (cd "$folder" && find . -path ./build -prune -o -type f -printf '%P\0' | LC_ALL=C sort -z |
    LC_ALL=C comm -z -13 "$area/files" - | xargs -0 -r rm -f)
  # shellcheck disable=SC2016 # the inner shell expands
  xargs -0 -r -a "$area/files" sh -c '
    folder=$1
    shift
    for file; do
      cmp -s "$file" "$folder/$file" || cp --parents -t "$folder" "$file"
    done' sh "$folder"
}

# configure_in FOLDER [CMAKE-ARG...]
configure_in() {
  folder=$1
  shift
  launcher=$(command -v ccache || true)
  quietly cmake -G Ninja -S "$folder" -B "$folder/build" -DCMAKE_BUILD_TYPE=Release -DQX_VOSK_OPEN=ON -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
    -DCMAKE_C_COMPILER_LAUNCHER="$launcher" -DCMAKE_CXX_COMPILER_LAUNCHER="$launcher" "$@"
}

build_libraries_in() {
  quietly cmake --build "$1/build" --parallel "$jobs" --target qx_vosk qx_vosk_open qx_cu
}

# keep NAME LINES-TO-DROP PATH...: drops these lines of the results when what the paths hold has changed.
keep() {
  name=$1 stale=$2
  shift 2
  now=$(cd "$area/tests" && find "$@" -type f | LC_ALL=C sort | xargs sha256sum | sha256sum)
  if [ "$now" != "$(cat "$area/$name" 2>/dev/null)" ] && [ -f "$area/results" ]; then
    sed -i "/$stale/d" "$area/results"
  fi
  echo "$now" >"$area/$name"
}

need_packages build test
sources='CMakeLists.txt cmake/*.cmake cmake/install/* include/* lib/* utils/* libqx_cu/* messages/*'
set -f # the patterns are git's
copy_to "$area/tests" '*'
worker=1
while [ "$worker" -le "$jobs" ]; do
  # shellcheck disable=SC2086 # a list of patterns
  copy_to "$area/worker-$worker" $sources
  worker=$((worker + 1))
done
# shellcheck disable=SC2086
copy_to "$area/mapping" $sources
set +f

echo "== mutants: build"
configure_in "$area/tests" -DQX_VOSK_TESTS=ON -DQX_VOSK_EXAMPLES=OFF
program=$area/tests/build/tests/run_mutants
quietly cmake --build "$area/tests/build" --parallel "$jobs" --target mutants
# shellcheck disable=SC2046 # a list of names
quietly cmake --build "$area/tests/build" --parallel "$jobs" --target $("$program" --area "$area" --list-tests)

# What a mutant makes the compiler warn of is no reason to refuse it.
worker=1
while [ "$worker" -le "$jobs" ]; do
  configure_in "$area/worker-$worker" -DQX_VOSK_TOOLS=OFF -DQX_VOSK_EXAMPLES=OFF -DCMAKE_CXX_FLAGS=-w
  build_libraries_in "$area/worker-$worker"
  worker=$((worker + 1))
done

marks=$area/reach.o
cc -c -O1 -fPIC -o "$marks" tests/mutants/reach.c
configure_in "$area/mapping" -DQX_VOSK_TOOLS=OFF -DQX_VOSK_EXAMPLES=OFF \
  -DCMAKE_CXX_FLAGS="-O1 -g -fno-inline -finstrument-functions" -DCMAKE_SHARED_LINKER_FLAGS="$marks"
build_libraries_in "$area/mapping"

keep sources '.' lib utils libqx_cu include messages
keep noticing ' survived ' tests fuzz
echo "== mutants: run"
exec "$program" --area "$area" --equivalent tests/mutants/equivalent --jobs "$jobs" "$@"
