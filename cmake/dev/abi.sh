#!/bin/sh
# abi.sh dump LIBRARY-DIR            writes abi/*.abi and abi/codes from libraries with debug information and the header
# abi.sh check LIBRARY-DIR           compares such libraries and the header with what is kept in abi/
# abi.sh compare OLD NEW             compares two dumps, or a dump with a library
# abi.sh compare-codes OLD HEADER    compares a list of codes with a header
# Additions pass, everything else is a failure: see docs/abi.md.
set -eu
cd "$(dirname "$0")/../.."

# Every number that the header gives a name: "NAME VALUE", in order.
codes_of() {
  ${CC:-cc} -E -dM -x c "$1" -Iinclude | sed -n 's/^#define \(VO\{0,1\}S\{0,1\}K_[A-Z0-9_]*\) (\{0,1\}\(-\{0,1\}[0-9][0-9]*\))\{0,1\}$/\1 \2/p' |
    LC_ALL=C sort
  # Of the flags, whose numbers stand in an enumeration.
  sed -n 's/^ *\(VK_FLAG_[A-Z_]*\) = \([0-9]*\),\{0,1\}$/\1 \2/p' "$1" | LC_ALL=C sort
}

compare() {
  abidiff --no-added-syms --headers-dir1 include --headers-dir2 include "$1" "$2" || {
    echo "abi: $2 does not do for programs that were built for $1" >&2
    return 1
  }
}

compare_codes() {
  now=$(mktemp)
  codes_of "$2" >"$now"
  status=0
  grep -v -x -F -f "$now" "$1" | sed 's/^/abi: gone or changed: /' >&2 || true
  ! grep -q -v -x -F -f "$now" "$1" || status=1
  rm -f "$now"
  return "$status"
}

case ${1:-} in
dump)
  for name in qx_vosk qx_cu; do
    abidw --exported-interfaces-only --drop-private-types --no-corpus-path --no-comp-dir-path --short-locs --headers-dir include \
      --out-file "abi/lib$name.abi" "$2/lib$name.so.1"
  done
  codes_of include/qx_vosk.h >abi/codes
  ;;
check)
  status=0
  for name in qx_vosk qx_cu; do
    compare "abi/lib$name.abi" "$2/lib$name.so.1" || status=1
  done
  compare_codes abi/codes include/qx_vosk.h || status=1
  exit "$status"
  ;;
compare) compare "$2" "$3" ;;
compare-codes) compare_codes "$2" "$3" ;;
*)
  echo "usage: abi.sh dump|check LIBRARY-DIR, compare OLD NEW, compare-codes OLD HEADER" >&2
  exit 2
  ;;
esac
