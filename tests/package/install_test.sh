#!/usr/bin/env bash
# Installs the project to empty prefixes, static and shared, and builds strangers' programs against
# each through find_package and through pkg-config.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

work=$PWD/build/install-test
rm -rf "$work"
mkdir -p "$work"
passed=0

# The check runs outside of any condition, where it ends at the first command that fails.
check() {
  local what=$1 status
  shift
  set +e
  (set -e; "$@") >"$work/log" 2>&1
  status=$?
  set -e
  if [[ $status -ne 0 ]]; then
    cat "$work/log"
    echo "FAILED: $what"
    exit 1
  fi
  echo "ok: $what: $(tail -n 1 "$work/log")"
  passed=$((passed + 1))
}

install_project() {
  local shared=$1 prefix=$2
  cmake -S . -B "$work/build-$shared" -G Ninja -DQAL_BUILD_TESTS=OFF -DBUILD_SHARED_LIBS="$shared" \
    --install-prefix "$prefix"
  cmake --build "$work/build-$shared"
  cmake --install "$work/build-$shared"
}

through_find_package() {
  local project=$1 prefix=$2 build=$work/find-package-$1-${2##*/}
  cmake -S "tests/package/$project" -B "$build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix"
  cmake --build "$build"
  "$build/stranger"
}

flags_for() {
  PKG_CONFIG_PATH=$(dirname "$(find "$1" -name qal.pc)") pkg-config --cflags --libs qal
}

# Links C and C++ units that use the inline accessors of the list headers into one program.
through_all_languages() {
  local prefix=$1 level=$2 flags unit objects=$work/accessors
  rm -rf "$objects"
  mkdir "$objects"
  flags=$(flags_for "$prefix")
  # shellcheck disable=SC2086  # the flags are words
  for unit in main from_c; do
    gcc -std=c11 "$level" -c "tests/package/accessors/$unit.c" $flags -o "$objects/$unit.o"
  done
  # shellcheck disable=SC2086
  g++ -std=c++17 "$level" -c tests/package/accessors/from_cxx.cpp $flags -o "$objects/from_cxx.o"
  # shellcheck disable=SC2086
  g++ "$objects"/*.o $flags -Wl,-rpath,"$prefix/lib" -o "$objects/stranger"
  "$objects/stranger"
}

exports_accessors() {
  local prefix=$1 library=libqal.a exported name
  local table=()
  if [[ -e $prefix/lib/libqal.so ]]; then library=libqal.so table=(-D); fi
  exported=$(nm "${table[@]}" --defined-only "$prefix/lib/$library")
  for name in qal_{list,plist}_{first,last,next,prev}; do
    grep -Eq " T $name(@@QAL_1)?\$" <<<"$exported" || { echo "$library lacks $name"; return 1; }
  done
  echo "$library"
}

through_pkg_config() {
  local source=$1 prefix=$2 flags
  shift 2
  flags=$(flags_for "$prefix")
  # shellcheck disable=SC2086  # the flags are words
  "$@" "$source" $flags -Wl,-rpath,"$prefix/lib" -o "$work/stranger"
  "$work/stranger"
}

from_python() {
  local library
  library=$(find "$1" -name libqal.so -o -name libqal.dylib)
  python3 examples/from_python.py "$library" >"$work/from_python.txt"
  diff examples/from_python.txt "$work/from_python.txt"
  cat "$work/from_python.txt"
}

for shared in OFF ON; do
  prefix=$work/shared-$shared
  check "install with BUILD_SHARED_LIBS=$shared" install_project "$shared" "$prefix"
  # A moved tree must still work: nothing may remember where it was installed first.
  mv "$prefix" "$prefix-moved"
  prefix=$prefix-moved
  check "C through find_package" through_find_package c_project "$prefix"
  check "C++ through find_package" through_find_package cxx_project "$prefix"
  check "C through pkg-config" through_pkg_config tests/package/c_project/main.c "$prefix" gcc -std=c11
  check "C++ through pkg-config" through_pkg_config tests/package/cxx_project/main.cpp "$prefix" g++ -std=c++17
  check "the installed tool starts" env -i ZUL_USER_HOMEDIR="$work/home" "$prefix/bin/kalmora-sweep"
  for level in -O0 -O2; do
    check "C and C++ units together with $level" through_all_languages "$prefix" "$level"
  done
  check "the library exports the inline accessors" exports_accessors "$prefix"
done
check "Python through the shared library" from_python "$prefix"
echo "$passed passed, 0 failed"
