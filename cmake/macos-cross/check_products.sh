#!/usr/bin/env bash
# Looks at what a cross build for macOS made: check_products.sh BUILD-DIRECTORY.
set -euo pipefail
build=$1
case $build in
  *x86_64*) machine='64-bit x86_64' ;;
  *aarch64*) machine='64-bit arm64' ;;
esac

fail() {
  echo "$build: $1" >&2
  exit 1
}

expect_kind() {
  local found
  found=$(file --brief "$1")
  [[ $found == "Mach-O $machine $2"* ]] || fail "$1 is no $2 for the processor but: $found"
}

# Every function that the C surface promises, as the contract program lists them.
promised() { grep -oP '^  HAS\([^,]*, \K\w+' tests/contract/c11_surface.c | sort -u; }

exported() { llvm-nm --extern-only --defined-only "$@" 2>/dev/null | awk 'NF == 3 {print substr($3, 2)}' | sort -u; }

expect_surface() {
  local missing
  missing=$(comm -23 <(promised) <(exported "$1"))
  [[ -z $missing ]] || fail "$1 lacks $missing"
}

expect_kind "$build/kalmora-sweep" executable
if [[ $build == *-shared ]]; then
  library=$build/libqal.1.dylib
  expect_kind "$library" 'dynamically linked shared library'
else
  library=$build/libqal.a
fi
expect_surface "$library"
