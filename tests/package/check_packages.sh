#!/usr/bin/env bash
# Looks into the built Debian packages: their files, the library's SONAME and symbols, hardening, dependencies,
# the manual page, and with --check what lintian says.
#
# usage: check_packages.sh [--check] FOLDER
set -euo pipefail

with_lintian=false
if (($# == 2)) && [[ $1 == --check ]]; then
  with_lintian=true
  shift
fi
readonly with_lintian
if (($# != 1)); then
  sed -n 's/^# usage: /usage: /p' "$0" >&2
  exit 2
fi
packages=("$1"/*.deb)
checks=$(cd "$(dirname "${BASH_SOURCE[0]}")/../build_checks" && pwd)
readonly packages checks

scratch=$(mktemp -d -t qrt_packages_XXXXXX)
trap 'rm -rf "$scratch"' EXIT

say() { echo "---- $*"; }

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

names=()
for package in "${packages[@]}"; do
  name=$(dpkg-deb --field "$package" Package)
  names+=("$name")
  dpkg-deb --extract "$package" "$scratch/$name"
done
[[ "${names[*]}" == "libqrt-core-dev libqrt-core1 libqrt-toolkit-dev libqrt-toolkit1 python3-qrt-core qrt" ]] ||
  fail "other packages than expected: ${names[*]}"

say "files"
# A link to what another package holds counts.
expect_file() { [[ -e $scratch/$1/$2 || -L $scratch/$1/$2 ]] || fail "$1 has no $2"; }
readonly lib=usr/lib/x86_64-linux-gnu
for file in "$lib/libqrt_core.a" "$lib/cmake/qrt_core/qrt_coreConfig.cmake" "$lib/pkgconfig/qrt_core.pc" \
  usr/include/qrt_core/qrt_core.h usr/include/qrt_core/utility/build_options.h \
  usr/share/doc/libqrt-core-dev/docs/tour.md usr/share/doc/libqrt-core-dev/examples/classify.cpp; do
  expect_file libqrt-core-dev "$file"
done
expect_file libqrt-core1 "$lib/libqrt_core.so.1"
expect_file libqrt-toolkit1 "$lib/libqrt_toolkit.so.1"
for file in "$lib/libqrt_toolkit.a" "$lib/libqrt_toolkit.so" "$lib/cmake/qrt_core/qrt_toolkitTargets.cmake" \
  usr/include/qrt_toolkit/import_onnx.h; do
  expect_file libqrt-toolkit-dev "$file"
done
expect_file python3-qrt-core usr/lib/python3/dist-packages/qrt_core/__init__.py
expect_file python3-qrt-core usr/lib/python3/dist-packages/qrt_core/py.typed
expect_file qrt usr/bin/qrt
expect_file qrt usr/share/qrt/lines.qrtmodel
expect_file qrt usr/share/man/man1/qrt.1.gz
expect_file qrt usr/share/bash-completion/completions/qrt
[[ $(readlink "$scratch/libqrt-core-dev/$lib/libqrt_core.so") == libqrt_core.so.1 ]] ||
  fail "libqrt_core.so doesn't point to libqrt_core.so.1"
[[ $(find "$scratch/libqrt-core1/usr" -name '*.so*' -type f | wc -l) == 1 ]] ||
  fail "libqrt-core1 has more than one library"

say "SONAME and symbols"
readonly library=$scratch/libqrt-core1/$lib/libqrt_core.so.1
soname=$(objdump -p "$library" | awk '$1 == "SONAME" { print $2 }')
[[ $soname == libqrt_core.so.1 ]] || fail "the SONAME is $soname"
python3 "$checks/check_exports.py" "$library" "$checks/exported_names.txt"

say "hardening"
python3 "$checks/check_hardening.py" "$library" "$scratch/qrt/usr/bin/qrt" "$scratch/libqrt-core-dev/$lib/libqrt_core.a"

say "dependencies"
for name in "${names[@]}"; do
  [[ $(dpkg-deb --field "$1/$name"_*.deb Depends) != *blas* ]] || fail "$name needs a BLAS, though the library holds one"
done

say "manual page"
readonly page=$scratch/qrt/usr/share/man/man1/qrt.1.gz
problems=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings --local-file "$page" 2>&1 >"$scratch/page")
[[ -z $problems ]] || fail "$problems"
# Every command that --help lists has a section, and every long option of its help stands there.
for command in "" $("$scratch/qrt/usr/bin/qrt" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p'); do
  grep -qi "^QRT $command" "$scratch/page" || fail "the manual page has no section on qrt $command"
  for option in $("$scratch/qrt/usr/bin/qrt" ${command:+"$command"} --help | grep -oE '^  (-.,)?--[a-z-]+' | sed 's/.*--/--/'); do
    grep -qe "$option" "$scratch/page" || fail "the manual page doesn't know $option of qrt $command"
  done
done

if [[ $with_lintian == true ]]; then
  say "lintian"
  # The packages aren't uploaded to Debian, where the first upload closes the report of a wish.
  lintian --allow-root --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs "${packages[@]}"
fi

echo "The packages are as they should be."
