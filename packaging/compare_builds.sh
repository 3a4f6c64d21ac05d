#!/usr/bin/env bash
# Says whether two builds in different directories gave the same bytes: every package, and the
# libraries and the tool as they were linked, with all their debug information.
set -euo pipefail
one=$1 other=$2

sums() (
  cd "$1"
  find . \( -name '*.deb' -o -name '*.dsc' -o -name '*.tar.*' -o -name '*.a' \
    -o -name 'libqal.so.*.*.*' -o -name kalmora-sweep \) -type f -print0 | sort -z | xargs -0r sha256sum
)

first=$(sums "$one")
second=$(sums "$other")
[[ -n $first ]] || { echo "$one holds nothing to compare"; exit 1; }
diff <(echo "$first") <(echo "$second")
echo "$(wc -l <<<"$first") files are the same in $one and $other"
