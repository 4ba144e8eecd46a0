#!/usr/bin/env bash
# Measures against a veskd of its own, on loopback, in a temporary directory.
#   bench/run.sh BUILD_DIR
# VESK_BENCH_NAMES: how many key names the long listing has (1000000).
set -euo pipefail
build=${1:?usage: bench/run.sh BUILD_DIR}
names=${VESK_BENCH_NAMES:-1000000}
batch=99999

work=$(mktemp -d)
server=
stop() {
  [ -z "$server" ] || { kill "$server" 2> /dev/null && wait "$server" 2> /dev/null; } || true
  rm -rf "$work"
}
trap stop EXIT

"$build/veskd/veskd" dev --dir "$work" --quiet > "$work/out" 2> "$work/log" &
server=$!
for _ in $(seq 100); do
  [ ! -e "$work/ready.json" ] || break
  kill -0 "$server" 2> /dev/null || { cat "$work/log" >&2; exit 1; }
  sleep 0.1
done
export VESK_CERTIFICATES=$work VESK_HOST=127.0.0.1
VESK_PORT=$(sed -n 's/.*"port": *\([0-9]*\).*/\1/p' "$work/ready.json")
export VESK_PORT
vesk=$build/vesk/vesk

# Generates keys in templates named after a letter and a number until there are as many as asked for.
num_keys=0
generate() {
  local count=$1 part
  while [ "$num_keys" -lt "$count" ]; do
    part=$((count - num_keys < batch ? count - num_keys : batch))
    "$vesk" template generate "$(printf 'NAMES%010d' "$num_keys")" --count "$part" > /dev/null
    num_keys=$((num_keys + part))
  done
}

echo "== listing key names into a file"
generate 1000
"$build/bench/names_bench" "$work/names"
generate "$names"
"$build/bench/names_bench" "$work/names"

echo
echo "== calls"
"$vesk" key create BENCHMARK > /dev/null
"$vesk" template generate BENCHMARK000001 --count $batch > /dev/null
for _ in 1 2; do "$vesk" template generate BENCHMARK000001 --count $batch --add > /dev/null; done
"$build/bench/calls_bench"
