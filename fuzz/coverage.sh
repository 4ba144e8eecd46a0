#!/usr/bin/env bash
# Runs the fuzz targets over their corpora and shows which lines of the parsers they reach: coverage.sh BUILD TARGET...
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
shift

# What reads bytes that come from outside.
parsers=(
  orn/vesk/skeys orn/vesk/wire
  orn/support/credentials.cc
  veskd/request_header.cc veskd/handlers.cc veskd/metadata_query.cc veskd/key_replication.cc
  veskd/certificate_store.cc veskd/key_pairs.cc veskd/key_text.cc
  veskd/configuration.cc veskd/configuration_section.cc veskd/faults.cc veskd/store_address.cc
  vesk/bulk_file.cc vesk/context_file.cc vesk/journal.cc vesk/json.cc vesk/metadata_terms.cc vesk/text.cc
)

objects=()
for target in "$@"; do
  program=$build/fuzz/fuzz_$target
  LLVM_PROFILE_FILE=$build/$target.profraw "$program" -runs=0 "fuzz/corpus/$target" 2> "$build/$target.log" ||
    { cat "$build/$target.log"; exit 1; }
  objects+=(-object "$program")
done
llvm-profdata merge -o "$build/all.profdata" "$build"/*.profraw
llvm-cov report "${objects[@]:1}" -instr-profile="$build/all.profdata" -show-functions=0 \
  -show-region-summary=0 -show-branch-summary=0 "${parsers[@]}"
