#!/bin/bash
# The ABI of a shared library and its description, which is kept beside its version script.
#
# Usage: abi.sh describe LIBRARY DESCRIPTION   writes the description
#        abi.sh compare LIBRARY DESCRIPTION    fails when the library is not as described
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
library=$2 description=$3

describe() {
  abidw --exported-interfaces-only --drop-private-types --headers-dir "$here/../orn" --no-corpus-path \
    --no-comp-dir-path --no-show-locs --type-id-style hash --out-file "$1" "$library"
}

compare() {
  built=$(mktemp)
  trap 'rm -f "$built"' EXIT
  describe "$built"
  # Redundant differences too: a record that differs is else told of once, perhaps where it is suppressed.
  abidiff --redundant --suppressions "$here/abi.suppressions" "$description" "$built" && return
  cat >&2 <<END

The ABI of $(basename "$library") is not what $(basename "$description") describes.
What was only added is described by: make abi
What was changed or removed breaks programs that exist: see docs/abi.md
END
  return 1
}

case $1 in
  describe) describe "$description" ;;
  compare) compare ;;
esac
