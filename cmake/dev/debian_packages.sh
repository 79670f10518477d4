#!/bin/sh
# debian_packages.sh [--long]: builds the Debian packages in build-packages/, checks them with lintian and the libraries
# with the kept ABI, and installs and uses them on a copy of this machine, or in a clean root where that cannot be had. The
# long form, for a release, always takes a clean root, and upgrades, replaces and purges them there; builds them again in
# another folder, at another date and under other circumstances, so that the same bytes must come out; and runs the demo
# on a Debian on which nothing is installed.
set -eu
cd "$(dirname "$0")/../.."
. cmake/dev/build.sh

clock= # what the building is started by, to see another time
long=
case ${1:-} in
'') ;;
--long) long=long ;;
*)
  echo "usage: ./dev packages [--long]" >&2
  exit 2
  ;;
esac
# Debug information is made and compared in any case; packages of it are wanted of a release.
[ -n "$long" ] || export DEB_BUILD_OPTIONS=noautodbgsym
[ ! -d /usr/lib/ccache ] || PATH=/usr/lib/ccache:$PATH
out=$PWD/build-packages
as_root= # what roots are made with
[ "$(id -u)" -eq 0 ] || as_root=sudo

# build_in FOLDER TO: builds the tree in FOLDER, and keeps in TO what comes out. A folder without blanks or the like: in others
# dpkg leaves paths in the debug information.
build_in() {
  mkdir -p "$1" "$2"
  cp -R "$out/tree" "$1/source"
  (
    cd "$1/source"
    # shellcheck disable=SC2086 # words
    quietly $clock dpkg-buildpackage -b -us -uc "-j$jobs"
  )
  find "$1" -maxdepth 1 -type f -exec mv -t "$2" {} +
}

# copy_packages FROM TO: without those of debug information, which nobody needs for this.
copy_packages() {
  mkdir -p "$2"
  find "$1" -maxdepth 1 -name '*.deb' ! -name '*-dbgsym_*' -exec cp -t "$2" {} +
}

# later_version FROM TO: the same packages under a later version.
later_version() {
  mkdir -p "$2"
  for deb in "$1"/*.deb; do
    case $deb in *-dbgsym_*) continue ;; esac
    version=$(dpkg-deb -f "$deb" Version)
    rm -rf "$out/unpacked"
    dpkg-deb -R "$deb" "$out/unpacked"
    sed -i "/^Version:/s/\$/+1/; s/(\([>=]*\) $version)/(\1 $version+1)/g" "$out/unpacked/DEBIAN/control"
    dpkg-deb --root-owner-group -b "$out/unpacked" "$2" >/dev/null
  done
}

rm -rf "$out"
mkdir -p "$out/tree" "$out/root"
tracked_files '*' | xargs -0 cp --parents -t "$out/tree" # as it is now, whatever is edited meanwhile
echo "== packages: build"
build_in "$out/build" "$out/first"

echo "== packages: lintian"
lintian --allow-root --fail-on error,warning "$out"/first/*.changes

echo "== packages: libraries of a later soname can be installed beside these"
for deb in "$out"/first/libqx-*[0-9]_[0-9]*_*.deb; do
  others=$(dpkg-deb --fsys-tarfile "$deb" | tar -t |
    grep -v -E '/$|^[.]/usr/(lib/[^/]*/lib[a-z_]*[.]so[.][0-9.]*|share/(doc|lintian)/.*)$') || continue
  fail "${deb##*/} would meet the same files of another: $others"
done

echo "== packages: ABI"
sh cmake/dev/abi.sh check "$(echo "$out"/build/source/obj-*/lib)"

if [ -n "$long" ]; then
  if git -c safe.directory="$PWD" rev-parse -q --verify HEAD >/dev/null 2>&1; then
    echo "== packages: ABI dump of the last commit, made as that of a tag is"
    sh cmake/dev/abi.sh tag HEAD "$out/abi"
    for name in qx_vosk qx_cu; do
      sh cmake/dev/abi.sh compare "abi/lib$name.abi" "$out/abi/lib$name.abi"
    done
  fi

  echo "== packages: build again, elsewhere"
  (
    umask 077
    clock='faketime -f +373d'
    export TZ=Asia/Tokyo LC_ALL=C.UTF-8 LANG=de_DE.UTF-8
    export CCACHE_DISABLE=1 NO_FAKE_STAT=1
    build_in "$out/another/folder" "$out/again"
  )
  for deb in "$out"/first/*.deb; do
    cmp "$deb" "$out/again/${deb##*/}" || fail "not reproducible: ${deb##*/}"
  done
  later_version "$out/first" "$out/root/second"
fi

# in_root NAME INCLUDE ARGUMENT: runs packages_in_root.sh in a root that has only the packages of INCLUDE besides apt.
in_root() {
  echo "== packages: $1"
  $as_root mmdebstrap --quiet --variant=apt --include="$2" \
    --customize-hook="mkdir \"\$1/packages\"" \
    --customize-hook="tar -C '$out/root' -c . | tar -C \"\$1/packages\" -x" \
    --customize-hook="chroot \"\$1\" sh /packages/packages_in_root.sh $3" \
    "$(. /etc/os-release && echo "$VERSION_CODENAME")" /dev/null
}

copy_packages "$out/first" "$out/root/first"
copy_packages "$out/first" "$out"
cp cmake/dev/packages_in_root.sh cmake/dev/another_qx_cu.c "$out/root"
# The README's first program.
# shellcheck disable=SC2016 # a program of sed
sed -n '/^```c$/,/^```$/{/^```/d;p}' README.md >"$out/root/demo.c"
if [ -z "$long" ]; then
  echo "== packages: installed on a copy of this machine"
  status=0
  $as_root sh cmake/dev/on_a_copy.sh "$out/root" sh /packages/packages_in_root.sh short || status=$?
  case $status in
  0) ;;
  77) in_root 'no copy here, so a clean root' gcc,libc6-dev,pkg-config short ;;
  *) exit "$status" ;;
  esac
else
  in_root 'a clean root' gcc,libc6-dev,pkg-config long
  in_root 'a root with tmpfiles.d' systemd-standalone-tmpfiles tmpfiles
  echo "== packages: the demo on a bare Debian"
  $as_root sh cmake/dev/bare_root.sh ./dev demo
fi
echo "== packages: all passed; they are in $out"
