#!/usr/bin/env bash
# Builds the Debian packages of the last commit, source and binary, in a new directory.
set -euo pipefail
directory=$(realpath -m "${1:?a directory to build in}")
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. packaging/logged.sh

version=$(packaging/project.sh VERSION)
packaged=$(dpkg-parsechangelog -l packaging/debian/changelog -S Version)
if [[ $packaged != "$version" ]]; then
  echo "CMakeLists.txt is at version $version, packaging/debian/changelog at $packaged"
  exit 1
fi

rm -rf "$directory"
mkdir -p "$directory"
# Debhelper fails below a directory with a space in its name.
room=$(mktemp -d /var/tmp/qal-build-XXXXXX)
trap 'rm -rf "$room"' EXIT
git archive --prefix="qal-$version/" HEAD | tar -x -C "$room"
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
export SOURCE_DATE_EPOCH
export CCACHE_BASEDIR=$room  # for those who have a compiler cache
cd "$room/qal-$version"
cp -r packaging/debian debian
logged "$directory/build.log" dpkg-buildpackage --unsigned-source --unsigned-changes -j2
mv "$room"/* "$directory"
