#!/usr/bin/env bash
# Makes the reference, build/docs/html, and build/docs/xml for the manual. Doxygen does not find
# pages whose path has a space, so it works on a copy.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

copy=$(mktemp -d /var/tmp/qal-reference-XXXXXX)
trap 'rm -rf "$copy"' EXIT
cp -r docs examples include ./*.md "$copy"
# The README's title is the first page's too, and the pictures lie beside the pages.
sed -i '1s/.*/# README/; s,(docs/pictures/,(,g' "$copy/README.md"
# To Doxygen a percent sign before a word is a command.
sed -i '/^```/,/^```/!s/%\([[:alpha:]]\)/%%\1/g' "$copy"/*.md "$copy"/docs/*.md
version=$(packaging/project.sh VERSION)
IFS=. read -r major minor patch <<<"$version"
sed "s/@PROJECT_VERSION@/$version/; s/@PROJECT_VERSION_MAJOR@/$major/; s/@PROJECT_VERSION_MINOR@/$minor/
     s/@PROJECT_VERSION_PATCH@/$patch/" include/qal/version.h.in >"$copy/include/qal/version.h"
mkdir -p build "$copy/build/docs"
docs/tools/examples.py include examples "$copy/build/docs/examples.dox"
(cd "$copy" && QAL_VERSION=$version doxygen docs/Doxyfile 2>&1) | sed "s|$copy/||"
html=$copy/build/docs/html
rm -r "$html/search"/*.{html,js}
cp docs/search.js "$html/search"
docs/tools/reference.py "$copy/build/docs/xml" "$html"
rm -rf build/docs
mv "$copy/build/docs" build
