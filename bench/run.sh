#!/usr/bin/env bash
# Measures against servers of its own, on loopback, in a temporary directory: one with EC keys that has many key names,
# and one with RSA keys that has few. Writes results.json and results.svg into the build directory.
#   bench/run.sh BUILD_DIR
# VESK_BENCH_NAMES: how many key names the long listing has (1000000).
set -euo pipefail
build=${1:?usage: bench/run.sh BUILD_DIR}
names=${VESK_BENCH_NAMES:-1000000}
few_names=1000
batch=99999

work=$(mktemp -d)
servers=()
stop() {
  [ ${#servers[@]} = 0 ] || { kill "${servers[@]}" && wait "${servers[@]}"; } 2> /dev/null || true
  rm -rf "$work"
}
trap stop EXIT

# What `veskd dev` would make with EC keys.
make_rsa_certificates() {
  local dir=$1 name
  mkdir -m 700 "$dir"
  (
    cd "$dir"
    umask 077
    openssl req -x509 -newkey rsa:2048 -nodes -days 365 -subj "/CN=authority with RSA keys" -keyout authority-key.pem \
      -addext "keyUsage=critical,keyCertSign,cRLSign" -out authority.pem
    for name in server client mirror; do
      case $name in
        server) printf 'extendedKeyUsage=serverAuth\nsubjectAltName=DNS:localhost,IP:127.0.0.1,IP:::1\n' ;;
        client) printf 'extendedKeyUsage=clientAuth\n' ;;
        mirror) printf 'extendedKeyUsage=clientAuth\nsubjectAltName=URI:urn:veskd:mirror\n' ;;
      esac > extensions
      printf 'basicConstraints=critical,CA:FALSE\nkeyUsage=critical,digitalSignature\n' >> extensions
      openssl req -newkey rsa:2048 -nodes -subj "/CN=$name with an RSA key" -keyout "$name-key.pem" |
        openssl x509 -req -CA authority.pem -CAkey authority-key.pem -CAcreateserial -days 365 -extfile extensions \
          -out "$name.pem"
      cat authority.pem >> "$name.pem"
    done
  ) 2> "$work/openssl.log" || { cat "$work/openssl.log" >&2; exit 1; }
}

start() {
  local dir=$1
  mkdir -p -m 700 "$dir"
  "$build/veskd/veskd" dev --dir "$dir" > /dev/null 2> "$dir/log" &
  servers+=($!)
  for _ in $(seq 100); do
    [ ! -e "$dir/ready.json" ] || return 0
    kill -0 $! 2> /dev/null || break
    sleep 0.1
  done
  cat "$dir/log" >&2
  exit 1
}

# The command, as a client of the server in a directory.
vesk() {
  local dir=$1
  shift
  "$build/vesk/vesk" --host 127.0.0.1 --port "$(sed -n 's/.*"port": *\([0-9]*\).*/\1/p' "$dir/ready.json")" \
    --certificates "$dir" "$@" > /dev/null
}

# The key that calls retrieve, and others in templates named after a letter and a number.
generate() {
  local dir=$1 count=$2 made=1 part
  vesk "$dir" key create BENCHMARK
  while [ "$made" -lt "$count" ]; do
    part=$((count - made < batch ? count - made : batch))
    vesk "$dir" template generate "$(printf 'NAMES%010d' "$made")" --count "$part"
    made=$((made + part))
  done
}

make_rsa_certificates "$work/rsa"
start "$work/rsa"
start "$work/ecdsa"
echo "making $names keys" >&2
generate "$work/rsa" $few_names
generate "$work/ecdsa" "$names"
echo "measuring, for some three minutes" >&2
"$build/bench/vesk_bench" measure "$work/ecdsa" "$work/rsa" "$build"
echo
echo "results: $build/results.json, $build/results.svg"
