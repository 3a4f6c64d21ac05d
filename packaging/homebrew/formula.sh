#!/usr/bin/env bash
# Prints the Homebrew formula of a release: formula.sh ARCHIVE URL, where URL is the place that the
# archive is put for others to fetch.
set -euo pipefail
archive=${1:?the archive of the sources} url=${2:?where the archive can be fetched}
here=$(dirname "${BASH_SOURCE[0]}")
description=$("$here/../project.sh" DESCRIPTION)
version=$("$here/../project.sh" VERSION)

# What the URL has must mean nothing to sed.
escaped() { sed 's/[&|\\]/\\&/g' <<<"$1"; }

sed -e "s|@DESCRIPTION@|$(escaped "$description")|" -e "s|@VERSION@|$version|" \
  -e "s|@URL@|$(escaped "$url")|" -e "s|@SHA256@|$(sha256sum "$archive" | cut -d ' ' -f 1)|" "$here/qal.rb.in"
