#!/bin/bash
# Runs the built examples against an installed key server, and has that look at the configuration of the service.
#
# Usage: run_examples.sh PREFIX WORK, where build_examples.sh has built them
set -euo pipefail

prefix=$1 work=$2
export LD_LIBRARY_PATH
LD_LIBRARY_PATH=$(dirname "$(find "$prefix/lib" -name libvesk.so)")
PATH=$work/shared:$prefix/bin:$PATH
unset VESK_CONTEXT
directory=$(mktemp -d)
cd "$directory"

fail() {
  echo "$*" >&2
  exit 1
}

echo 'fan front 1200 300 5000' >sensors
# The server says that it serves once it does; until then the read waits.
mkfifo said
veskd dev --dir keys --quiet --sensor-file sensors >said &
server=$!
clean_up() {
  kill -TERM $server
  wait $server || true
  rm -rf "$directory"
}
trap clean_up EXIT
exec 3<said
read -r -t 20 _ <&3 || fail 'veskd did not start'
port=$(sed 's/.*"port": *\([0-9]*\).*/\1/' keys/ready.json)
export VESK_HOST=127.0.0.1 VESK_PORT=$port VESK_CERTIFICATES=keys
at="127.0.0.1 $port keys"

# fetch_key: both languages, both kinds of libraries, both ways to find them; and over a support layer of one's own.
vesk key create backup-2026 >created
vesk key get backup-2026 --out expected >got
for program in "$work"/{shared/fetch_key,shared_c,static_c,static/fetch_key}; do
  $program $at backup-2026 | cmp - expected
done
digest=$(sha256sum <expected)
for program in "$work"/{shared/fetch_key_digest,shared_cc,static_cc,static/fetch_key_digest}; do
  [ "$($program $at backup-2026)" = "${digest%-}backup-2026" ] || fail "$program: another digest"
done
for program in "$work"/{own_support,shared/own_support}; do
  said=$($program $at backup-2026)
  [[ $said == 'backup-2026: 256 bits, instance 20'* ]] || fail "$program: $said"
done

# What there is not is an error, and nothing comes out.
! fetch_key $at nothing >nothing 2>why || fail 'a key that is not there was fetched'
[ ! -s nothing ] && grep -q 'nothing: ' why || fail "$(cat why)"
! "$work/own_support" $at nothing 2>why && grep -q 'nothing: status 2[0-9][0-9]' why || fail "$(cat why)"
! own_support localhost "$port" /nowhere backup-2026 2>why && grep -q 'status 300' why || fail "$(cat why)"

# draw_keys: each key once, and all of them.
vesk template generate tape-library-01 --count 30 >generated
draw_keys $at tape-library-01 30 | sort >drawn
[ "$(wc -l <drawn)" = 30 ] && [ -z "$(cut -d' ' -f2 drawn | uniq -d)" ] || fail "$(cat drawn)"
! draw_keys $at tape-library-01 1 >none 2>&1 || fail 'an exhausted template served a key'

# list_names
[ "$(list_names $at names 1500)" = '1500 names, highest sequence 0005DB' ] || fail 'other names'
grep -q '^example-million0005DB' names || fail 'the last name is missing'
! list_names $at /dev/full 1 >none 2>&1 || fail 'a list that was not written is no list'

# query_metadata
vesk metadata set backup-2026 --md '1=pool A' --md 2=first >set
vesk metadata set tape-library-01000000 --md '1=pool B' >set
[ "$(query_metadata $at 'pool A')" = $'backup-2026\tfirst' ] || fail 'other keys'

# import_key
openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=head-office -keyout office-key.pem -out office.pem 2>why
vesk certificate import head-office office.pem >imported
chmod 600 office-key.pem
vesk private-key import head-office office-key.pem >imported
head -c 32 /dev/urandom >payroll.key
import_key $at head-office office.pem payroll <payroll.key
fetch_key $at payroll | cmp - payroll.key
! import_key $at head-office office.pem short </dev/null 2>why || fail 'nothing was imported as a key'

# monitor_appliance: its exit code, and its line.
monitored() {
  local said code=0
  said=$(monitor_appliance "$1" "$2" keys) || code=$?
  [ $code = "$3" ] && [[ $said == $4 ]] || fail "monitor_appliance: $code: $said"
}
monitored 127.0.0.1 "$port" 0 'OK server certificate valid until 20*Z'
echo 'fan front 12 300 5000' >sensors
monitored 127.0.0.1 "$port" 2 'CRITICAL application * fan 1--- temperature *'
monitored 127.0.0.1 1 2 'CRITICAL *CONN_ERR_REFUSED*'

# The configuration of the service, with the certificates of this server.
sed "s|/etc/veskd|$directory/keys|; s|/var/lib/veskd|$directory|; s|/run/veskd|$directory|" \
  "$prefix/share/doc/veskd/examples/service.toml" >service.toml
veskd serve --config service.toml --check >checked 2>&1 || fail "$(cat checked)"
