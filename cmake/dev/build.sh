# shellcheck shell=sh
# What the subcommands of ./dev share; sourced with the root of the tree as the working directory.

jobs=$(nproc)

fail() {
  echo "dev: $*" >&2
  exit 1
}

# quietly COMMAND...: its output is shown only when it fails.
quietly() {
  output=$(mktemp)
  "$@" >"$output" 2>&1 || {
    cat "$output" >&2
    rm -f "$output"
    fail "failed: $*"
  }
  rm -f "$output"
}

# What ccache needs to know of precompiled headers: they are told apart by their content.
export CCACHE_SLOPPINESS=pch_defines,time_macros

tests_wanted=no

# need_packages GROUP...: installs what is missing of these groups.
need_packages() {
  case " $* " in
  *" test "*) tests_wanted=yes ;;
  esac
  sh cmake/dev/packages.sh install "$@"
}

# configure PRESET [CMAKE-ARG...]: a first "./dev demo" does without the tests and their packages; once these are there,
# the tests stay in, so that nothing is configured back and forth. ccache serves where it is installed.
configure() {
  preset=$1
  shift
  launcher=$(command -v ccache || true)
  case $preset in
  fuzz | bench) ;;
  *) [ "$tests_wanted" = yes ] || sh cmake/dev/packages.sh present test || set -- -DQX_VOSK_TESTS=OFF "$@" ;;
  esac
  cmake --preset "$preset" -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
    -DCMAKE_C_COMPILER_LAUNCHER="$launcher" -DCMAKE_CXX_COMPILER_LAUNCHER="$launcher" "$@"
}

# build PRESET [TARGET...]
build() {
  configure "$1"
  preset=$1
  shift
  if [ $# -gt 0 ]; then
    cmake --build --preset "$preset" --parallel "$jobs" --target "$@"
  else
    cmake --build --preset "$preset" --parallel "$jobs"
  fi
}

# run_tests PRESET [CTEST-ARG...]: an empty suite is a failure, not a success.
run_tests() {
  preset=$1
  shift
  ctest --preset "$preset" --output-on-failure --no-tests=error -j "$jobs" "$@"
}

# tracked_files PATTERN...: NUL-separated names, also where the tree is no clone or belongs to another user.
tracked_files() {
  if git -c safe.directory="$PWD" rev-parse --git-dir >/dev/null 2>&1; then
    git -c safe.directory="$PWD" ls-files -z --cached --others --exclude-standard -- "$@"
  else
    for pattern in "$@"; do
      find . -path './build*' -prune -o -type f -name "$pattern" -print0
    done
  fi
}
