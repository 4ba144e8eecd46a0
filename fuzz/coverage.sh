#!/usr/bin/env bash
# Runs the fuzz targets over their corpora and shows which lines of the parsers they reach: coverage.sh BUILD TARGET...
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
shift

# What reads bytes that come from outside.
parsers=(
  orn/vesk/skeys orn/vesk/wire/codec.h orn/vesk/wire/text.h
  orn/support/credentials.cc
  veskd/request_header.cc veskd/handlers.cc veskd/metadata_query.cc veskd/key_replication.cc
  veskd/certificate_store.cc veskd/key_transfer.cc veskd/key_pairs.cc veskd/key_text.cc
  veskd/configuration.cc veskd/configuration_section.cc veskd/faults.cc veskd/store_address.cc
  vesk/bulk_file.cc vesk/context_file.cc vesk/journal.cc vesk/json_reader.cc vesk/metadata_terms.cc vesk/text.cc
)

objects=()
for target in "$@"; do
  program=$build/fuzz/fuzz_$target
  LLVM_PROFILE_FILE=$build/$target.profraw "$program" -runs=0 "fuzz/corpus/$target" 2> "$build/$target.log" ||
    { cat "$build/$target.log"; exit 1; }
  objects+=(-object "$program")
done
llvm-profdata merge -o "$build/all.profdata" "$build"/*.profraw
llvm-cov report "${objects[@]:1}" -instr-profile="$build/all.profdata" -show-region-summary=0 \
  -show-branch-summary=0 2> "$build/cov.log" |
  awk -v parsers="${parsers[*]}" '
    BEGIN { count = split(parsers, wanted, " ") }
    {
      for (i = 1; i <= count; ++i) {
        if (index($1, wanted[i]) != 1 || $(NF - 2) == 0) continue
        printf "%-40s %5d lines, %4d not reached\n", $1, $(NF - 2), $(NF - 1)
        lines += $(NF - 2)
        missed += $(NF - 1)
      }
    }
    END { printf "%.1f %% of %d lines are reached\n", 100 * (lines - missed) / lines, lines }'
