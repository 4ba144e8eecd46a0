#!/bin/bash
# Installs a build under a prefix and looks at what arrived.
#
# Usage: install.sh BUILD PREFIX
set -euo pipefail

build=$1 prefix=$2
fail() {
  echo "$*" >&2
  exit 1
}

rm -rf "$prefix"
mkdir -p "$prefix"
for component in runtime development command server; do
  cmake --install "$build" --prefix "$prefix" --component $component >"$prefix.log" || { cat "$prefix.log"; exit 1; }
  [ "$(find "$prefix" -type f | wc -l)" -gt "${before:-0}" ] || fail "the component $component is empty"
  before=$(find "$prefix" -type f | wc -l)
done
cd "$prefix"
# What has no component of these would be missing in a package.
cmake --install "$build" --prefix "$prefix" >"$prefix.log"
[ "$(find . -type f | wc -l)" = "$before" ] || fail 'something is in no component'

headers=$(ls include/orn)
[ "$(echo $headers)" = 'records.h skeys.h status.h support.h vesk.h' ] || fail "headers: $headers"
[ "$(ls bin)" = $'vesk\nveskd' ] || fail "programs: $(ls bin)"
for library in vesk ornsupport; do
  shared=$(find lib -name "lib$library.so.1")
  [ "$(readelf --dynamic "$shared" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')" = "lib$library.so.1" ] || fail "soname: $shared"
  [ "$(readlink "${shared%.1}")" = "lib$library.so.1" ] || fail "no link for the linker: ${shared%.1}"
  [ -f "${shared%so.1}a" ] || fail "no static library: $library"
done
! readelf --dynamic bin/* "$(find lib -name libvesk.so.1)" | grep -E 'R(UN)?PATH' || fail 'looks for libraries elsewhere'
grep -q "^ExecStart=$prefix/bin/veskd serve" lib/systemd/system/veskd.service || fail 'the unit starts another program'
told=$(grep -rIF "$build" . | grep -vF "$prefix" || true)
[ -z "$told" ] || fail "where it was built is told: $told"
