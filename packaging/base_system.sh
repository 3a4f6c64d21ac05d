#!/usr/bin/env bash
# Makes the Debian 12 that packages are tried in, with a compiler and a reader for manual pages and
# nothing else, and keeps it from run to run. Only root can.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. packaging/logged.sh

base=build/package/bookworm.tar
if [[ -e $base || $EUID -ne 0 ]]; then exit; fi

# Debootstrap fails below a directory with a space in its name.
root=$(mktemp -d /var/tmp/qal-base-XXXXXX)
trap 'rm -rf "$root"' EXIT
chmod 0755 "$root"
mkdir -p build/package
logged "$base.log" \
  debootstrap --variant=minbase --include=gcc,libc6-dev,man-db,pkg-config bookworm "$root"
tar -cf "$base.new" -C "$root" .
mv "$base.new" "$base"
