#!/bin/bash
# Shows the system at work: the key server, keys created and fetched, a template's keys drawn, a restart.
# Everything happens in a temporary directory, which is gone afterwards.
#
# Usage: demo/run.sh BUILD_DIR
set -euo pipefail

if [ $# -ne 1 ] || [ ! -x "$1/vesk/vesk" ] || [ ! -x "$1/veskd/veskd" ]; then
  echo "usage: demo/run.sh BUILD_DIR, where the programs vesk and veskd have been built" >&2
  exit 2
fi
build=$(cd "$1" && pwd)
PATH=$build/vesk:$build/veskd:$PATH
unset VESK_HOST VESK_PORT VESK_CERTIFICATES

work=$(mktemp -d)
server=
cd "$work"

stop_server() {
  [ -n "$server" ] || return 0
  local pid=$server
  server=
  kill -TERM "$pid"
  wait "$pid"
}

clean_up() {
  local status=$?
  trap - EXIT
  stop_server || status=1
  cd / && rm -rf "$work"
  [ "$status" -eq 0 ] || echo "the demo failed" >&2
  exit "$status"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

title() { printf '\n%s\n' "$1"; }

# Shows a command line, then runs it.
step() {
  echo "\$ $*"
  "$@"
}

same() {
  step cmp "$1" "$2"
  echo "$1 and $2 are the same"
}

start_server() {
  echo '$ veskd dev --dir keyserver --quiet &'
  # The server says that it serves once it does; until then the read waits.
  mkfifo said
  veskd dev --dir keyserver --quiet >said &
  server=$!
  exec 3<said
  rm said
  local line
  IFS= read -r -t 10 line <&3 || { echo "veskd did not start" >&2; exit 1; }
  echo "$line"
  export VESK_HOST=127.0.0.1 VESK_CERTIFICATES=keyserver
  VESK_PORT=$(sed 's/.*"port": *\([0-9]*\).*/\1/' keyserver/ready.json)
  export VESK_PORT
  echo "\$ export VESK_HOST=$VESK_HOST VESK_PORT=$VESK_PORT VESK_CERTIFICATES=$VESK_CERTIFICATES"
}

title 'A key server for development: it makes its own certificates.'
start_server
step vesk ping

title 'A key is created, and fetched twice. Its value goes into files that only their owner may read.'
step vesk key create backup-2026
step vesk key get backup-2026 --out first.key
step vesk key get backup-2026 --out second.key
same first.key second.key
step ls -l first.key second.key

title 'Both ends prove who they are. These are the certificates of the server.'
step vesk server certificates

title 'A template holds keys that are served one after the other.'
step vesk template generate tape-library-01 --count 5
step vesk key next tape-library-01 --out tape-0.key
step vesk key next tape-library-01 --out tape-1.key
step vesk template depth tape-library-01

title 'The server stops and starts again. The keys are what they were.'
echo '$ kill -TERM %veskd; wait %veskd'
stop_server
start_server
step vesk key get backup-2026 --out third.key
same first.key third.key
step vesk key get tape-library-01000001 --out tape-1-again.key
same tape-1.key tape-1-again.key

stop_server
title 'Done.'
