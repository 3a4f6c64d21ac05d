#!/usr/bin/env bash
# Makes the reference, build/docs/html, and build/docs/xml for the manual. Doxygen does not find
# pages whose path has a space, so it works on a copy.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
cp -r docs examples include "$copy"
mkdir -p build "$copy/build/docs"
docs/tools/examples.py include examples "$copy/build/docs/examples.dox"
(cd "$copy" && doxygen docs/Doxyfile 2>&1) | sed "s|$copy/||"
rm -rf build/docs
mv "$copy/build/docs" build
