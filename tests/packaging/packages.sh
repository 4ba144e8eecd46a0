#!/bin/bash
# Makes Debian packages of a build, has them checked, installs them into a folder of their own, and purges them again.
#
# Usage: packages.sh SOURCES BUILD WORK
set -euo pipefail

# dpkg wants to be root, and is content to think so.
[ "$(id -u)" = 0 ] || exec fakeroot "$0" "$@"

sources=$1 build=$2 work=$3
fail() {
  echo "$*" >&2
  exit 1
}

rm -rf "$work"
mkdir -p "$work/programs" "$work/root/etc" "$work/root/var/lib/dpkg"
"$sources/packaging/build_packages.sh" "$work/packages" "$build"
lintian --allow-root --fail-on error "$work"/packages/*.changes

# The scripts of the packages run with the folder as their root; what speaks to the machine's systemd is kept from it.
for program in systemctl deb-systemd-invoke; do
  ln -s /bin/true "$work/programs/$program"
done
root=$work/root
touch "$root/var/lib/dpkg/status"
dpkg_here() {
  PATH=$work/programs:$PATH dpkg --root="$root" --force-script-chrootless --force-depends --force-not-root "$@" \
    >"$work/log" 2>&1 || { cat "$work/log" >&2; exit 1; }
}
mode_of() { stat --format '%a %u' "$root$1"; }

dpkg_here --install "$work"/packages/*.deb
[ "$(dpkg-query --root="$root" -W -f '${Package} ${db:Status-Status}\n' | grep -c ' installed$')" = 5 ] || fail 'not all is installed'
user=$(sed -n 's/^veskd:[^:]*:\([0-9]*\):.*:\/var\/lib\/veskd:.*nologin$/\1/p' "$root/etc/passwd")
[ -n "$user" ] || fail "no user of the server's: $(cat "$root/etc/passwd")"
for directory in /etc/veskd /var/lib/veskd; do
  [ "$(mode_of $directory)" = "700 $user" ] || fail "$directory: $(mode_of $directory)"
done
[ -L "$root/etc/systemd/system/multi-user.target.wants/veskd.service" ] || fail 'the service is not enabled'
for program in vesk veskd; do
  "$root/usr/bin/$program" --version | grep -qx "$program [0-9.]*" || fail "$program does not run"
done
dpkg-deb --field "$work"/packages/libvesk1_*.deb Depends | grep -q libornsupport1 || fail 'libvesk1 does without its support layer'

# What is the administrator's stays, and is all that stays.
touch "$root/etc/veskd/veskd.toml"
dpkg_here --purge veskd vesk libvesk-dev libvesk1 libornsupport1
left=$(cd "$root" && find etc usr lib bin var/lib/veskd -path '*vesk*' 2>/dev/null || true)
[ "$left" = $'etc/veskd\netc/veskd/veskd.toml' ] || fail "left behind: $left"
