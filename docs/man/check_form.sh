#!/bin/bash
# Has two formatters look at the pages: GROFF MANDOC PAGE... Fails when one of them finds something to say.
set -euo pipefail
groff=$1
mandoc=$2
shift 2
complaints=$(for page; do
  "$groff" -man -ww -z -Tutf8 "$page" 2>&1
  "$mandoc" -T lint -W warning "$page" 2>&1 || true
done)
[[ -z $complaints ]] || { printf '%s\n' "$complaints"; exit 1; }
