#!/usr/bin/env bash
# Makes a clean Debian system in a folder, installs the packages there, and uses them as a stranger would:
# the tool runs a network, an application is compiled against the headers, linked both ways, and run.
# Must be root. Debian packages that were fetched are kept in CACHE for the next time.
#
# usage: check_clean_root.sh FOLDER_OF_PACKAGES CACHE
set -euo pipefail

if (($# != 2)); then
  sed -n 's/^# usage: /usage: /p' "$0" >&2
  exit 2
fi
if ((EUID != 0)); then
  echo "check_clean_root.sh: must be root, to make a system in a folder" >&2
  exit 2
fi
source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
mkdir -p "$2"
cache=$(cd "$2" && pwd)
suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
readonly packages=$1 source_dir cache suite mirror=http://deb.debian.org/debian

scratch=$(mktemp -d -t qrt_clean_root_XXXXXX)
readonly scratch root=$scratch/root
trap 'rm -rf --one-file-system "$scratch"' EXIT

say() { echo "---- $*"; }

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# Runs a command there, with nothing of this environment.
inside() {
  chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 \
    DEBIAN_FRONTEND=noninteractive "$@"
}

# install NAME...: quietly, unless it fails
install_there() {
  inside apt-get -q -y --no-install-recommends install "$@" >"$scratch/apt.log" 2>&1 || {
    cat "$scratch/apt.log" >&2
    fail "apt-get install $*"
  }
  cp -n "$root"/var/cache/apt/archives/*.deb "$cache/" 2>/dev/null || true
}

expect_run() {
  local output
  output=$(inside "$@" /trial/app/model.json) || fail "$* ended with $?: $output"
  [[ $output == "core 1.0: 0 2.5 0 4" ]] || fail "$* printed: $output"
  echo "$output"
}

say "a clean $suite"
debootstrap --variant=minbase --cache-dir="$cache" "$suite" "$root" "$mirror" >"$scratch/debootstrap.log" 2>&1 || {
  tail -n 20 "$scratch/debootstrap.log" >&2
  fail "debootstrap"
}
cp -n "$cache"/*.deb "$root/var/cache/apt/archives/"
mkdir -p "$root/trial/packages"
for package in "$packages"/*.deb; do
  cp "$package" "$root/trial/packages/$(dpkg-deb --field "$package" Package).deb"
done
cp -r "$source_dir/tests/install/app" "$root/trial/app"
cp -r "$source_dir/models/digits" "$root/trial/digits"
cp -r "$source_dir/models/lines/samples" "$root/trial/lines"

say "the tool alone"
install_there /trial/packages/qrt.deb
[[ ! -e $root/usr/lib/x86_64-linux-gnu/libqrt_core.so.1 ]] || fail "the tool brings the shared library along"
inside qrt --version
inside qrt run /trial/digits/digits.qrtmodel --input /trial/digits/samples/seven-drawn-1.png \
  --labels /trial/digits/labels.txt --top 1 | tee "$scratch/result"
grep -q '^ 1\. 7 ' "$scratch/result" || fail "the tool doesn't read a seven"
[[ $(inside qrt read /trial/lines/page.jpg) == "$(head -n 1 "$root/trial/lines/page.txt")"* ]] || fail "the tool doesn't read its page"

say "the library and what developers need"
install_there /trial/packages/libqrt-core1.deb /trial/packages/libqrt-core-dev.deb \
  g++ cmake ninja-build pkg-config
[[ $(inside ldconfig -p) == *"libqrt_core.so.1 "* ]] || fail "ldconfig doesn't know the library"

say "find_package, shared and static"
# configure_there FOLDER OPTION...
configure_there() {
  inside cmake -G Ninja -S /trial/app -B "$@" >"$scratch/cmake.log" || fail "$(cat "$scratch/cmake.log")"
}
configure_there /trial/build -DWITH_TOOLKIT=OFF
inside cmake --build /trial/build -- --quiet
expect_run /trial/build/app
expect_run /trial/build/app_static
[[ $(inside ldd /trial/build/app) != *blas* ]] || fail "the library needs a BLAS, though it holds one"

say "pkg-config, shared and static"
# shellcheck disable=SC2016
inside sh -ec 'g++ -std=c++17 /trial/app/main.cpp $(pkg-config --cflags --libs qrt_core) -o /trial/app_pc'
expect_run /trial/app_pc
# shellcheck disable=SC2016
inside sh -ec 'g++ -std=c++17 -static /trial/app/main.cpp $(pkg-config --static --cflags --libs qrt_core) \
  -o /trial/app_pc_static'
expect_run /trial/app_pc_static

say "the toolkit"
install_there /trial/packages/libqrt-toolkit1.deb /trial/packages/libqrt-toolkit-dev.deb
configure_there /trial/build_toolkit -DWITH_TOOLKIT=ON
inside cmake --build /trial/build_toolkit --target importer -- --quiet

say "the Python package"
install_there /trial/packages/python3-qrt-core.deb
# The sample that people copy first, and the toolkit's library behind the module.
cp "$source_dir/README.md" "$root/trial/README.md"
mkdir -p "$root/trial/models"
cp -r "$source_dir/models/digits" "$root/trial/models/digits"
inside sh -ec 'cd /trial && python3 -m doctest README.md' || fail "the Python sample of README.md doesn't run"
inside python3 -c '
import qrt_core as qrt
tuned = qrt.tune("/trial/models/digits/digits.json", budget=1, wisdom=False)
assert tuned.tuning.after_ms <= tuned.tuning.before_ms
' || fail "the Python package tunes nothing"

say "removal"
inside apt-get -q -y purge qrt python3-qrt-core libqrt-toolkit-dev libqrt-toolkit1 libqrt-core-dev libqrt-core1 >/dev/null 2>&1 || fail "apt-get purge"
left=$(find "$root/usr" -name '*qrt[_-]core*' -o -name qrt -o -name 'qrt.*')
[[ -z $left ]] || fail "left behind: $(head <<<"$left")"

echo "The packages work on a clean $suite."
