#!/usr/bin/env bash
# Installs the packages in a minimal Debian 12, uses them as a newcomer would, removes them and
# looks for what is left.
set -euo pipefail
packages=${1:?the directory of the packages}
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. packaging/logged.sh

if [[ $EUID -ne 0 ]]; then
  echo "NOT CHECKED: only root can install into a root directory of its own"
  exit
fi

root=build/package/root
version=$(packaging/project.sh VERSION)

in_root() {
  chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 \
    DEBIAN_FRONTEND=noninteractive "$@"
}

# Logs, caches and the package manager's own lists change with whatever is installed.
files() {
  (cd "$root" && find . \( -path ./newcomer -o -path ./tmp -o -path ./var/cache -o -path ./var/log \
    -o -path ./var/lib/apt -o -path './var/lib/dpkg/*-old' \) -prune -o -print | sort)
}

expect() {
  local what=$1 wanted=$2 got=$3
  if [[ $got != "$wanted" ]]; then
    echo "FAILED: $what: expected '$wanted', got '$got'"
    exit 1
  fi
  echo "ok: $what"
}

newcomer() { in_root sh -c "cd /newcomer && $1"; }

rm -rf "$root"
mkdir "$root"
tar -xf build/package/bookworm.tar -C "$root"
cp /etc/resolv.conf "$root/etc/resolv.conf"
mkdir "$root/newcomer"
find "$packages" -maxdepth 1 -name '*.deb' ! -name '*-dbgsym_*' -exec cp -t "$root/newcomer" {} +
awk '/^```/ { inside = $0 == "```c"; next } inside' README.md >"$root/newcomer/mine.c"
logged "$root.log" in_root apt-get update
before=$(files)

logged "$root.log" newcomer 'apt-get install -y --no-install-recommends ./*.deb'
echo "ok: apt installs $(cd "$root/newcomer" && echo *.deb)"

echo incomplete >"$root/newcomer/halix_server1.dat"
# Kept while libcurl is missing, so that the packages have to name it.
echo 'http://127.0.0.1:1/ ada secret 1' >"$root/newcomer/halix_server2.dat"
expect "the tool says nothing and ends well" 0 "$(newcomer 'TMPDIR=/newcomer kalmora-sweep 2>&1; echo $?')"
expect "the tool settles both records" "" "$(find "$root/newcomer" -name '*.dat')"
expect "the README's program runs" scenes/engine/parts \
  "$(newcomer 'cc mine.c $(pkg-config --cflags --libs qal) && ./a.out')"
expect "a packaged example runs" "$(cat examples/pooled_records.txt)" "$(newcomer \
  'cc /usr/share/doc/libqal-dev/examples/pooled_records.c $(pkg-config --cflags --libs qal) && ./a.out')"
expect "man shows the tool's page" kalmora-sweep \
  "$(newcomer 'man kalmora-sweep' | grep -o -m 1 kalmora-sweep)"
expect "man shows the library's page" qal "$(newcomer 'man 7 qal' | grep -o -m 1 -w qal)"
expect "man shows a function's page" qal_file_copy \
  "$(newcomer 'man qal_file_copy' | grep -o -m 1 -w qal_file_copy)"

logged "$root.log" in_root apt-get purge -y kalmora-sweep "libqal${version%%.*}" libqal-dev qal-doc
logged "$root.log" in_root apt-get autoremove --purge -y
expect "nothing is left" "" "$(diff <(echo "$before") <(files))"
rm -rf "$root"
