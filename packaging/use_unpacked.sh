#!/usr/bin/env bash
# Builds strangers' programs, through find_package, against what packages or archives hold:
# use_unpacked.sh DIRECTORY ARCHIVE...
set -euo pipefail
tree=$(realpath -m "${1:?a directory to unpack in}")
shift
rm -rf "$tree"
mkdir -p "$tree"

for archive; do
  case $archive in
    *.deb) dpkg-deb --extract "$archive" "$tree" ;;
    *) tar -xf "$archive" -C "$tree" --strip-components=1 ;;
  esac
done

cd "$(dirname "${BASH_SOURCE[0]}")"
. ./logged.sh
cd ..
for project in examples/project tests/package/cxx_project; do
  build=$tree/${project##*/}
  logged "$tree/log" cmake -S "$project" -B "$build" -G Ninja -DCMAKE_PREFIX_PATH="$tree;$tree/usr"
  logged "$tree/log" cmake --build "$build"
  echo "ok: $project finds it: $("$build/mine" | tail -n 1)"
done
