#!/bin/sh
# debian_packages.sh [--long]: builds the Debian packages in build-packages/, checks them with lintian and the libraries
# with the kept ABI, and installs and uses them in a clean root. The long form, for a release, also upgrades and purges
# them there, and builds them again in another folder under other circumstances: the same bytes must come out.
set -eu
cd "$(dirname "$0")/../.."
. cmake/dev/build.sh

long=
case ${1:-} in
'') ;;
--long) long=long ;;
*)
  echo "usage: ./dev packages [--long]" >&2
  exit 2
  ;;
esac
[ ! -d /usr/lib/ccache ] || PATH=/usr/lib/ccache:$PATH
out=$PWD/build-packages

# build_in FOLDER [COMMAND...]: builds the tree in FOLDER/source, after the commands have changed it.
build_in() {
  folder=$1
  shift
  mkdir -p "$folder/source"
  tracked_files '*' | xargs -0 cp --parents -t "$folder/source"
  (
    cd "$folder/source"
    [ $# -eq 0 ] || "$@"
    quietly dpkg-buildpackage -b -us -uc "-j$jobs"
  )
}

# copy_packages FROM TO: without those of debug information, which nobody needs for this.
copy_packages() {
  mkdir -p "$2"
  find "$1" -maxdepth 1 -name '*.deb' ! -name '*-dbgsym_*' -exec cp -t "$2" {} +
}

next_version() {
  sed -i '1s/(\(.*\))/(\1+1)/' debian/changelog
}

rm -rf "$out"
mkdir -p "$out/root"
echo "== packages: build"
build_in "$out/first"

echo "== packages: lintian"
lintian --allow-root --fail-on error,warning "$out"/first/*.changes

echo "== packages: ABI"
sh cmake/dev/abi.sh check "$(echo "$out"/first/source/obj-*/lib)"

if [ -n "$long" ]; then
  echo "== packages: build again, elsewhere"
  (
    umask 077
    export TZ=Asia/Tokyo LC_ALL=C.UTF-8 LANG=de_DE.UTF-8
    CCACHE_DISABLE=1
    export CCACHE_DISABLE
    build_in "$out/a longer folder"
  )
  for deb in "$out"/first/*.deb; do
    cmp "$deb" "$out/a longer folder/${deb##*/}" || fail "not reproducible: ${deb##*/}"
  done
  echo "== packages: build the next version"
  build_in "$out/next" next_version
  copy_packages "$out/next" "$out/root/second"
fi

echo "== packages: a clean root"
copy_packages "$out/first" "$out/root/first"
cp cmake/dev/packages_in_root.sh "$out/root"
# The README's first program.
# shellcheck disable=SC2016 # a program of sed
sed -n '/^```c$/,/^```$/{/^```/d;p}' README.md >"$out/root/demo.c"
mmdebstrap --quiet --variant=apt --include=gcc,libc6-dev,libstdc++6,pkg-config \
  --customize-hook="mkdir \"\$1/packages\"" \
  --customize-hook="tar -C '$out/root' -c . | tar -C \"\$1/packages\" -x" \
  --customize-hook="chroot \"\$1\" sh /packages/packages_in_root.sh $long" \
  "$(. /etc/os-release && echo "$VERSION_CODENAME")" /dev/null
echo "== packages: all passed; they are in $out/first"
