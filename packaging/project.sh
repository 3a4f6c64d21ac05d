#!/usr/bin/env bash
# Prints what the project says of itself: project.sh VERSION|DESCRIPTION
set -euo pipefail
sed -n "s/^  ${1:?what to print} \"\?\([^\"]*\)\"\?$/\1/p" "$(dirname "${BASH_SOURCE[0]}")/../CMakeLists.txt"
