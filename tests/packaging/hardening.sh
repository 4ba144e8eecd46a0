#!/bin/bash
# Checks that shared libraries and programs were built as cmake/hardening.cmake says, by what can be seen in them.
#
# Usage: hardening.sh FILE...
set -euo pipefail

status=0
lacks() {
  echo "$file: $1" >&2
  status=1
}

# How many instructions are like a pattern.
instructions() { grep -cE "$1" <<<"$code" || true; }

for file; do
  [ -f "$file" ] || { lacks 'is not there'; continue; }
  header=$(readelf --wide --file-header "$file")
  segments=$(readelf --wide --program-headers "$file")
  dynamic=$(readelf --wide --dynamic "$file")
  imported=$(nm --dynamic --undefined-only "$file")

  grep -q 'Type: *DYN' <<<"$header" || lacks 'has a fixed address'
  ! grep -q INTERP <<<"$segments" || grep -q 'FLAGS_1.* PIE' <<<"$dynamic" || lacks 'is not position independent'
  grep -q GNU_RELRO <<<"$segments" || lacks 'no relocations become read-only'
  grep -qE 'FLAGS_1.* NOW' <<<"$dynamic" || lacks 'some relocations stay writable'
  grep -qE 'GNU_STACK.* RW +0x' <<<"$segments" || lacks 'its stack may be executed'
  grep -q __stack_chk_fail <<<"$imported" || lacks 'no stack protector'
  grep -qE '__[a-z]+_chk\b' <<<"$imported" || lacks 'no function checks the size of its buffer'
  if [ "$(uname -m)" = x86_64 ]; then
    code=$(objdump --disassemble --no-show-raw-insn "$file" | grep -E 'endbr64|or[a-z]* +\$0x0,.*\(%rsp\)' || true)
    # The start code of every program has a few of its own.
    [ "$(instructions endbr64)" -gt 10 ] || lacks 'jumps may lead anywhere'
    [ "$(instructions rsp)" -gt 0 ] || lacks 'large frames skip the guard page'
  fi
done
exit $status
