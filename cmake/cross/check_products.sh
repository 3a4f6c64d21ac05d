#!/usr/bin/env bash
# Looks at what a cross build for macOS made: check_products.sh BUILD-DIRECTORY.
set -euo pipefail
build=$(realpath "$1")
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
prefix=$build/installed
case ${build##*/} in
  *x86_64*) processor=x86_64 ;;
  *aarch64*) processor=aarch64 ;;
esac

fail() {
  echo "$build: $1" >&2
  exit 1
}

expect() {
  local what=$1 pattern=$2
  grep -qE "$pattern" || fail "$what: no $pattern"
}

# Every function that the C surface promises, as the contract program lists them.
promised() { grep -oP '^  HAS\([^,]*, \K\w+' tests/contract/c11_surface.c | sort -u; }

exported() { llvm-nm --extern-only --defined-only "$1" | awk 'NF == 3 {print substr($3, 2)}' | sort -u; }

check_surface() {
  local names missing
  names=$(promised)
  missing=$(comm -23 <(echo "$names") <(exported "$1"))
  [[ -z $missing ]] || fail "$1 lacks $missing"
}

check_file() { llvm-readobj --file-header "$1" | tr -d '\n' | expect "$1" "Arch: $processor.*FileType: $2 "; }

# The tool finds the library from where it lies itself, and the library goes by its major version.
check_shared() {
  check_file "$prefix/lib/libqal.1.dylib" DynamicLibrary
  llvm-objdump --macho --dylib-id "$prefix/lib/libqal.1.dylib" | expect 'name of the library' '^@rpath/libqal\.1\.dylib$'
  llvm-objdump --macho --dylibs-used "$prefix/bin/kalmora-sweep" | expect 'libraries of the tool' '@rpath/libqal\.1\.dylib '
  llvm-objdump --macho --rpaths "$prefix/bin/kalmora-sweep" | expect 'paths of the tool' '^@loader_path/\.\./lib$'
  expect 'paths of programs that use it' '^Libs: .*-Wl,-rpath,\$\{libdir\}' <"$prefix/lib/pkgconfig/qal.pc"
}

rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null
check_file "$prefix/bin/kalmora-sweep" Executable
llvm-objdump --macho --dylibs-used "$prefix/bin/kalmora-sweep" | expect 'libraries of the tool' '/usr/lib/libz\.1\.dylib '
if [[ $build == *-shared ]]; then
  check_shared
  check_surface "$prefix/lib/libqal.dylib"
else
  check_surface "$prefix/lib/libqal.a"
fi
