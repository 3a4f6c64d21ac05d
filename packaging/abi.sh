#!/usr/bin/env bash
# Compares the interface of the shared library with the one under version control, or, with
# "renew", writes it down anew.
set -euo pipefail
library=$(realpath "${1:?the shared library, with its debug information}")
action=${2:-check}
cd "$(dirname "${BASH_SOURCE[0]}")"

version=$(./project.sh VERSION)
baseline=abi/libqal.so.${version%%.*}.abi

# Only what the public headers define, and nothing of where or with what it was built.
describe() {
  abidw --headers-dir ../include --drop-private-types --exported-interfaces-only --no-elf-needed \
    --no-show-locs --no-corpus-path --no-comp-dir-path --type-id-style hash --out-file "$1" "$library"
}

if [[ $action == renew ]]; then
  describe "$baseline"
  exit
fi
now=${library%/*}/interface.abi
describe "$now"
abidiff --no-added-syms "$baseline" "$now"
echo "the interface is that of $baseline, or more"
