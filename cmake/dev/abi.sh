#!/bin/sh
# abi.sh tag TAG [TO]                builds what TAG names, and writes TO/*.abi and TO/codes (TO is abi/ where none is given)
# abi.sh dump LIBRARY-DIR [TO]       the same from libraries with debug information that are there, and the headers
# abi.sh check LIBRARY-DIR           compares such libraries and the headers with what is kept in abi/
# abi.sh compare OLD NEW             compares two dumps, or a dump with a library
# abi.sh compare-codes OLD HEADER... compares a list of codes with headers
# Additions pass, everything else is a failure: see docs/abi.md.
set -eu
cd "$(dirname "$0")/../.."

# codes_of HEADER...: every number that a header gives a name: "NAME VALUE", in order.
codes_of() {
  for header; do
    ${CC:-cc} -E -dM -x c "$header" |
      sed -nE 's/^#define ((VOSK|VK|CU)_[A-Z0-9_]+) \(?(-?[0-9]+)\)?$/\1 \3/p' | LC_ALL=C sort
    # Of the flags, whose numbers stand in an enumeration.
    sed -n 's/^ *\(VK_FLAG_[A-Z_]*\) = \([0-9]*\),\{0,1\}$/\1 \2/p' "$header" | LC_ALL=C sort
  done
}

# dump LIBRARY-DIR INCLUDE-DIR TO
dump() {
  mkdir -p "$3"
  for name in qx_vosk qx_cu; do
    abidw --exported-interfaces-only --drop-private-types --no-corpus-path --no-comp-dir-path --short-locs \
      --headers-dir "$2" --out-file "$3/lib$name.abi" "$1/lib$name.so.1"
  done
  codes_of "$2/qx_vosk.h" "$2/qx_cu.h" >"$3/codes"
}

# dump_tag TAG TO
dump_tag() {
  tree=$(mktemp -d)
  git -c safe.directory="$PWD" archive "$1" | tar -x -C "$tree"
  {
    cmake -S "$tree" -B "$tree/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQX_VOSK_TOOLS=OFF -DQX_VOSK_EXAMPLES=OFF
    cmake --build "$tree/build" --target qx_vosk qx_cu
  } >"$tree/log" 2>&1 || {
    cat "$tree/log" >&2
    return 1
  }
  dump "$tree/build/lib" "$tree/include" "$2"
  rm -rf "$tree"
}

compare() {
  abidiff --no-added-syms --headers-dir1 include --headers-dir2 include "$1" "$2" || {
    echo "abi: $2 does not do for programs that were built for $1" >&2
    return 1
  }
}

# compare_codes OLD HEADER...
compare_codes() {
  old=$1
  shift
  now=$(mktemp)
  codes_of "$@" >"$now"
  status=0
  grep -v -x -F -f "$now" "$old" | sed 's/^/abi: gone or changed: /' >&2 || true
  ! grep -q -v -x -F -f "$now" "$old" || status=1
  rm -f "$now"
  return "$status"
}

case ${1:-} in
tag) dump_tag "$2" "${3:-abi}" ;;
dump) dump "$2" include "${3:-abi}" ;;
check)
  status=0
  for name in qx_vosk qx_cu; do
    compare "abi/lib$name.abi" "$2/lib$name.so.1" || status=1
  done
  compare_codes abi/codes include/qx_vosk.h include/qx_cu.h || status=1
  exit "$status"
  ;;
compare) compare "$2" "$3" ;;
compare-codes)
  shift
  compare_codes "$@"
  ;;
*)
  echo "usage: abi.sh tag TAG [TO], dump LIBRARY-DIR [TO], check LIBRARY-DIR, compare OLD NEW, compare-codes OLD HEADER..." >&2
  exit 2
  ;;
esac
