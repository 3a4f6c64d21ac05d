#!/usr/bin/env bash
# Says whether two builds in different directories gave the same bytes: every package, and the
# libraries and the tool as they were linked, with all their debug information.
set -euo pipefail
one=$1 other=$2

sums() (
  cd "$1"
  find . \( -name '*.deb' -o -name '*.dsc' -o -name '*.tar.*' -o -name '*.a' \
    -o -name 'libqal.so.*.*.*' -o -name kalmora-sweep \) -type f -print0 | sort -z | xargs -0 sha256sum
)

diff <(sums "$one") <(sums "$other")
echo "$(sums "$one" | wc -l) files are the same in $one and $other"
