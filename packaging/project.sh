#!/usr/bin/env bash
# Prints what the project says of itself: project.sh VERSION|DESCRIPTION
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
said=$(sed -n "s/^  ${1:?what to print} \"\?\([^\"]*\)\"\?$/\1/p" CMakeLists.txt)
[[ -n $said ]] || { echo "CMakeLists.txt says no $1 on a line of its own" >&2; exit 1; }
echo "$said"
