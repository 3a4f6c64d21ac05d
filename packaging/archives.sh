#!/usr/bin/env bash
# Makes what a release offers to systems without Debian packages, in a new directory: the sources
# of the last commit, what they build here as one archive for each component, and the formula.
set -euo pipefail
directory=$(realpath -m "${1:?a directory to build in}")
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. packaging/logged.sh

version=$(packaging/project.sh VERSION)
sources=$directory/qal-$version.tar.gz
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
export SOURCE_DATE_EPOCH

pack() {
  rm -rf "$directory/packed"
  logged "$directory/log" cpack --config "$directory/build/CPackConfig.cmake" -B "$directory/packed"
  rm -rf "$directory/packed/_CPack_Packages"
}

sums() { (cd "$directory/packed" && sha256sum ./*); }

rm -rf "$directory"
mkdir -p "$directory"
git archive --prefix="qal-$version/" --output "$sources" HEAD
tar -xf "$sources" -C "$directory"
logged "$directory/log" cmake -S "$directory/qal-$version" -B "$directory/build" -G Ninja -DQAL_BUILD_TESTS=OFF
logged "$directory/log" cmake --build "$directory/build"
pack
first=$(sums)
pack
diff <(echo "$first") <(sums)
mv "$directory"/packed/*.tar.gz "$directory"

packaging/use_unpacked.sh "$directory/unpacked" "$directory/qal-$version"-*.tar.gz

packaging/homebrew/formula.sh "$sources" "file://$sources" >"$directory/qal.rb"
ruby -c "$directory/qal.rb"
