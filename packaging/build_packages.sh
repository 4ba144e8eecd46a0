#!/bin/bash
# Builds the Debian packages from what is under version control.
#
# Usage: build_packages.sh DIRECTORY [BUILD]   the packages are in DIRECTORY afterwards; with BUILD, a build directory of
#                                              this tree, they hold what was built there
set -euo pipefail

sources=$(cd "$(dirname "$0")/.." && pwd)
directory=$1
rm -rf "$directory"
mkdir -p "$directory/tree"
directory=$(cd "$directory" && pwd)
export DEB_BUILD_OPTIONS="nocheck parallel=$(nproc)"
if [ $# -gt 1 ]; then
  VESK_BUILD=$(cd "$2" && pwd)
  export VESK_BUILD DEB_BUILD_OPTIONS="$DEB_BUILD_OPTIONS noautodbgsym"
fi

cd "$sources"
git ls-files -z | tar --create --null --files-from - | tar --extract --directory "$directory/tree"
cd "$directory/tree"
dpkg-buildpackage --unsigned-source --unsigned-changes --build=binary >"$directory/log" 2>&1 ||
  { tail -n 50 "$directory/log" >&2; exit 1; }
rm -rf "$directory/tree"
ls "$directory"/*.deb
