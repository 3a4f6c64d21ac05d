#!/usr/bin/env bash
# Builds strangers' programs, through find_package, against what archives or packages unpack to.
set -euo pipefail
tree=$(realpath "${1:?the unpacked tree}")
cd "$(dirname "${BASH_SOURCE[0]}")/../tests/package"

for project in c_project cxx_project; do
  build=$tree/build/$project
  cmake -S "$project" -B "$build" -G Ninja -DCMAKE_PREFIX_PATH="$tree;$tree/usr" >"$tree/log"
  cmake --build "$build" >"$tree/log"
  echo "ok: $project with ${tree##*/}: $("$build/stranger")"
done
