#!/usr/bin/env bash
# Installs the project to empty prefixes, static and shared, builds strangers' programs against each
# through find_package and through pkg-config, and tries what else packagers do.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

work=$PWD/build/install-test
rm -rf "$work"
mkdir -p "$work"
passed=0

# Copied out, so that nothing of the tree beside it helps.
example=$work/project
cp -r examples/project "$example"

# Bash ignores `set -e` within a condition, so the check runs outside of any.
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

# install_project SHARED PREFIX [OPTION...], not optimised, which takes half of the time
install_project() {
  local build=$work/build-$1
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DBUILD_TESTING=OFF -DBUILD_SHARED_LIBS="$1" \
    --install-prefix "$2" "${@:3}"
  cmake --build "$build"
  cmake --install "$build"
}

# through_find_package PROJECT PLACE, an installed tree or the tree that it was built in
through_find_package() {
  local build=$work/find-package-${1##*/}-${2##*/}
  cmake -S "$1" -B "$build" -G Ninja -DCMAKE_PREFIX_PATH="$2"
  cmake --build "$build"
  "$build/mine"
}

# Runs the example project's program.
example_prints() {
  diff examples/project/mine.txt <("$1")
  tail -n 1 examples/project/mine.txt
}

example_through_find_package() {
  through_find_package "$example" "$1"
  example_prints "$work/find-package-${example##*/}-${1##*/}/mine"
}

example_through_make() {
  local library_dir
  library_dir=$(dirname "$(find "$1" -name qal.pc -printf '%h\n')")
  PKG_CONFIG_PATH=$library_dir/pkgconfig make --always-make -C "$example"
  LD_LIBRARY_PATH=$library_dir example_prints "$example/mine"
}

# Sets `flags` to those for the installed tree, read as the shell of a makefile reads them.
flags_for() {
  local words library
  words=$(PKG_CONFIG_PATH=$(dirname "$(find "$1" -name qal.pc)") pkg-config --cflags --libs qal)
  eval "flags=($words)"
  library=$(find "$1" -name 'libqal.so' -o -name libqal.a)
  flags+=("-Wl,-rpath,${library%/*}")
}

# Links C and C++ units that use the inline accessors of the list headers into one program.
through_all_languages() {
  local prefix=$1 level=$2 flags=() unit objects=$work/accessors
  rm -rf "$objects"
  mkdir "$objects"
  flags_for "$prefix"
  for unit in main from_c; do
    gcc -std=c11 "$level" -c "tests/package/accessors/$unit.c" "${flags[@]}" -o "$objects/$unit.o"
  done
  g++ -std=c++17 "$level" -c tests/package/accessors/from_cxx.cpp "${flags[@]}" -o "$objects/from_cxx.o"
  g++ "$objects"/*.o "${flags[@]}" -o "$objects/stranger"
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

each_function_has_a_page() {
  local pages=$1/share/man/man3 name
  for name in $(sed -nE 's/^ (qal_\w+)@.*/\1/p' packaging/debian/libqal1.symbols); do
    [[ -s $pages/$name.3 ]] || { echo "$name has none"; return 1; }
  done
  grep -x '.so man3/qal_files.3' "$pages/qal_file_copy.3"
}

through_pkg_config() {
  local source=$1 prefix=$2 flags=()
  shift 2
  flags_for "$prefix"
  "$@" "$source" "${flags[@]}" -o "$work/stranger"
  "$work/stranger"
}

runs_in_silence() {
  env -i ZUL_USER_HOMEDIR="$work/home" TMPDIR="$work/home" "$@" 2>&1 | diff /dev/null -
}

from_python() {
  local library
  library=$(find "$1" -name libqal.so -o -name libqal.dylib)
  python3 examples/from_python.py "$library" >"$work/from_python.txt"
  diff examples/from_python.txt "$work/from_python.txt"
  cat "$work/from_python.txt"
}

configure_alone() {
  rm -rf "$work/alone"
  cmake -S . -B "$work/alone" -G Ninja "$@"
}

# One error that names everything that is missing and what is optional.
names_what_is_missing() {
  local package word status=0 absent=()
  for package in ZLIB CURL GTest PkgConfig; do
    absent+=("-DCMAKE_DISABLE_FIND_PACKAGE_$package=ON")
  done
  configure_alone "${absent[@]}" >"$work/missing" 2>&1 || status=$?
  cat "$work/missing"
  [[ $status -ne 0 && $(grep -c "^CMake Error" "$work/missing") -eq 1 ]]
  for word in zlib1g-dev libcurl4-openssl-dev libgtest-dev libgmock-dev libcpp-httplib-dev \
    QAL_BUILD_TESTS=OFF QAL_BUILD_KALMORA=OFF; do
    grep -q -- "$word" "$work/missing"
  done
  echo "$word"
}

# One error, before anything is compiled.
stops_at_32_bits() {
  local status=0
  configure_alone -DCMAKE_{C,CXX}_FLAGS=-m32 -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY \
    >"$work/32-bit" 2>&1 || status=$?
  cat "$work/32-bit"
  [[ $status -ne 0 && $(grep -c "^CMake Error" "$work/32-bit") -eq 1 ]]
  grep -x '  qal needs 64 bits, and this compiler makes programs for another width.' "$work/32-bit"
}

# within_a_project LANGUAGE [OPTION...]: a project that compiles its units as one and has no headers of
# libcurl.
within_a_project() {
  local build=$work/parent-$1
  installed=$build/installed
  cmake -S tests/package/parent -B "$build" -G Ninja -DLANGUAGE="$1" -DQAL_SOURCES="$PWD" \
    -DCMAKE_UNITY_BUILD=ON -DQAL_BUILD_KALMORA=OFF -DCMAKE_DISABLE_FIND_PACKAGE_CURL=ON \
    --install-prefix "$installed" "${@:2}"
  cmake --build "$build"
  cmake --install "$build"
  "$installed/bin/stranger"
}

installs_what_is_its_own() {
  local installed
  within_a_project C
  diff <(echo bin bin/stranger) <(cd "$installed" && echo $(find * | sort))
}

# The licence must not pass for that of the project around it.
installs_the_library_too() {
  local installed
  within_a_project CXX -DQAL_INSTALL=ON
  diff <(echo qal) <(ls "$installed/share/doc")
  diff /dev/null <(find "$installed" -name 'kalmora*')
  ls "$installed/lib/libqal.a"
}

files_of() { (cd "$1" && find . ! -type d ! -name LICENSE | sort); }

# Every file but the licence belongs to one component, and the tool's own suffices to run it.
installs_by_components() {
  local build=$1 all=$2 component parts=$work/components
  rm -rf "$parts"
  for component in runtime development documentation; do
    cmake --install "$build" --component "$component" --prefix "$parts/$component"
  done
  runs_in_silence "$parts/runtime/bin/kalmora-sweep"
  diff <(files_of "$all") <(for component in "$parts"/*; do files_of "$component"; done | sort)
  files_of "$parts/runtime" | tail -n 1
}

installs_into_directories() {
  local library_dir=$1 tools_dir=$2 include_dir=$3 prefix=$work/directories
  rm -rf "$prefix"
  install_project ON "$prefix" -DCMAKE_INSTALL_LIBDIR="$library_dir" \
    -DCMAKE_INSTALL_BINDIR="$tools_dir" -DCMAKE_INSTALL_INCLUDEDIR="$include_dir"
  runs_in_silence "$(find "$prefix" -name kalmora-sweep)"
  through_pkg_config tests/package/cxx_project/main.cpp "$prefix" g++ -std=c++17
  rm -rf "$work/find-package-cxx_project-directories"
  through_find_package tests/package/cxx_project "$(dirname "$(find "$prefix" -name qalConfig.cmake)")"
}

# refusal SENTENCE [COMMAND...]: the error that packaging reports.
refusal() {
  local said status=0
  said=$("${@:2}" "$work/commit/packaging/last_commit.sh" 2>&1) || status=$?
  echo "$said"
  [[ $status -eq 1 && $said == "package: the last commit is packaged, and $1"* ]]
}

# Packaging starts from a commit, and reports why it cannot.
packages_a_commit() {
  local folder=$work/commit tools=$work/tools tool
  export GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_SYSTEM=/dev/null
  local git=(git -C "$folder" -c user.name=n -c user.email=n@example.org)
  mkdir -p "$folder/packaging" "$tools"
  cp packaging/last_commit.sh "$folder/packaging"
  for tool in bash dirname; do ln -s "$(command -v "$tool")" "$tools"; done
  refusal "git is not installed" env PATH="$tools" bash
  refusal "this folder is no git repository" env GIT_CEILING_DIRECTORIES="$work"
  git init --quiet "$work"
  refusal "this folder is no git repository of its own"
  rm -rf "$work/.git"
  "${git[@]}" init --quiet
  refusal "there is none"
  "${git[@]}" add packaging
  "${git[@]}" commit --quiet --message first
  refusal "git refuses a repository of another owner" env GIT_TEST_ASSUME_DIFFERENT_OWNER=1
  "$folder/packaging/last_commit.sh"
  touch "$folder/new"
  refusal "there are files that it does not have"
  rm "$folder/new"
  echo >>"$folder/packaging/last_commit.sh"
  refusal "there are changes to it"
}

check "packaging starts from a commit" packages_a_commit
check "what is missing is told at once" names_what_is_missing
if [[ $(uname -m) == x86_64 ]]; then  # whose compilers know the narrower processor, too
  check "a build for 32 bits stops" stops_at_32_bits
fi
check "BUILD_TESTING=OFF asks for nothing of the tests" \
  configure_alone -DBUILD_TESTING=OFF -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON
check "a part of a C project" installs_what_is_its_own
check "a part of a C++ project" installs_the_library_too
for shared in OFF ON; do
  prefix=$work/shared-$shared
  check "install with BUILD_SHARED_LIBS=$shared" install_project "$shared" "$prefix"
  # A moved tree must still work: nothing may remember where it was installed first.
  mv "$prefix" "$prefix-moved"
  prefix=$prefix-moved
  check "C through find_package" example_through_find_package "$prefix"
  check "C++ through find_package" through_find_package tests/package/cxx_project "$prefix"
  check "C through the build tree" example_through_find_package "$work/build-$shared"
  check "C++ through the build tree" through_find_package tests/package/cxx_project "$work/build-$shared"
  check "C through make" example_through_make "$prefix"
  check "C++ through pkg-config" through_pkg_config tests/package/cxx_project/main.cpp "$prefix" g++ -std=c++17
  check "the blocks through pkg-config" through_pkg_config examples/kalmora/blocks.cpp "$prefix" g++ -std=c++17
  check "the installed tool starts" runs_in_silence "$prefix/bin/kalmora-sweep"
  for level in -O0 -O2; do
    check "C and C++ units together with $level" through_all_languages "$prefix" "$level"
  done
  check "the library exports the inline accessors" exports_accessors "$prefix"
  check "each function has a manual page" each_function_has_a_page "$prefix"
  check "one component after the other" installs_by_components "$work/build-$shared" "$prefix"
done
check "directories below the prefix" installs_into_directories lib/a/b tools/bin include/a
check "directories elsewhere" installs_into_directories "$work/directories/l" tools "$work/directories/i"
check "Python through the shared library" from_python "$prefix"
echo "$passed passed, 0 failed"
