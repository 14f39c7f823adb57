#!/usr/bin/env bash
# Installs a built tree into a scratch prefix, moves the prefix, and builds and runs the application of
# app/ against it, through find_package and through pkg-config; looks at what a project gets that has the source tree as a
# subdirectory.
#
# usage: check_install.sh CMAKE SOURCE_DIR BUILD_DIR COMPILER
set -euo pipefail

if (($# != 4)); then
  sed -n 's/^# usage: /usage: /p' "$0" >&2
  exit 2
fi
readonly cmake=$1 source_dir=$2 build_dir=$3 compiler=$4
readonly app=$source_dir/tests/install/app

scratch=$(mktemp -d -t qrt_install_XXXXXX)
trap 'rm -rf "$scratch"' EXIT
readonly first=$scratch/first prefix="$scratch/moved elsewhere"

say() { echo "---- $*"; }

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# Runs one of the application's programs, which prints what it computed.
expect_run() { expect_run_of "$app/model.json" "$@"; }
expect_run_of() {
  local model=$1 output
  shift
  output=$("$@" "$model") || fail "$* ended with $?: $output"
  [[ $output == "core 1.0: 0 2.5 0 4" ]] || fail "$* printed: $output"
  echo "$output"
}

say "install, then move"
"$cmake" --install "$build_dir" --prefix "$first" >/dev/null
mv "$first" "$prefix"
for file in include/qrt_core/qrt_core.h include/qrt_core/utility/build_options.h lib/libqrt_core.a \
  lib/libqrt_core.so lib/libqrt_core.so.1 lib/pkgconfig/qrt_core.pc \
  lib/cmake/qrt_core/qrt_coreConfig.cmake lib/libqrt_toolkit.so.1 lib/libqrt_toolkit.a \
  include/qrt_toolkit/import_onnx.h include/qrt_toolkit/tune/tune.h lib/cmake/qrt_core/qrt_toolkitTargets.cmake; do
  [[ -e $prefix/$file ]] || fail "$file is not installed"
done
# Public headers, the package and the pkg-config file name no place of the build.
if grep -rnF -e "$first" -e "$source_dir" -e "$build_dir" "$prefix/include" "$prefix/lib/cmake" \
  "$prefix/lib/pkgconfig"; then
  fail "the installed files name a place where they were built or first installed"
fi
if [[ -e $prefix/bin/qrt ]]; then
  "$prefix/bin/qrt" --help >/dev/null || fail "the installed tool doesn't start"
  [[ ! -e $prefix/share/man ]] || [[ -s $prefix/share/bash-completion/completions/qrt ]] ||
    fail "the completion of the tool isn't installed beside its manual page"
fi

say "find_package, shared and static"
"$cmake" -G Ninja -S "$app" -B "$scratch/package" -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
"$cmake" --build "$scratch/package" -- --quiet
expect_run "$scratch/package/app"
expect_run "$scratch/package/app_static"
[[ $("$scratch/package/importer") == "many operators" ]] || fail "the toolkit's table isn't there"
refused=$("$scratch/package/importer" "$scratch/absent.onnx")
[[ $refused == refused:* ]] || fail "the toolkit said of a missing file: $refused"
for form in json qrtmodel; do
  "$scratch/package/export" "$scratch/made.$form" || fail "the exporter ended with $?"
  expect_run_of "$scratch/made.$form" "$scratch/package/app"
done

say "the lines for CMake that the README gives"
mkdir "$scratch/readme"
{
  echo 'cmake_minimum_required(VERSION 3.25)'
  echo 'project(application LANGUAGES CXX)'
  echo 'add_executable(application main.cpp)'
  sed -n '/^```cmake$/,/^```$/p' "$source_dir/README.md" | grep -v '^```'
} >"$scratch/readme/CMakeLists.txt"
cp "$app/main.cpp" "$scratch/readme/"
"$cmake" -G Ninja -S "$scratch/readme" -B "$scratch/readme/build" -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
"$cmake" --build "$scratch/readme/build" -- --quiet
expect_run "$scratch/readme/build/application"

say "find_package refuses another major version"
if "$cmake" -G Ninja -S "$app" -B "$scratch/refused" -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_PREFIX_PATH="$prefix" -DWANTED_VERSION=2.0 >/dev/null 2>&1; then
  fail "version 2.0 was asked for and found"
fi

say "pkg-config, shared and static"
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
[[ $(pkg-config --modversion qrt_core) == 1.0.0 ]] || fail "pkg-config gives another version"
# The flags quote the blank in the prefix for a shell.
declare -a flags
eval "flags=($(pkg-config --cflags --libs qrt_core))"
"$compiler" -std=c++17 "$app/main.cpp" "${flags[@]}" -o "$scratch/app_pc"
LD_LIBRARY_PATH=$prefix/lib expect_run "$scratch/app_pc"
eval "flags=($(pkg-config --static --cflags --libs qrt_core))"
"$compiler" -std=c++17 -static "$app/main.cpp" "${flags[@]}" -o "$scratch/app_pc_static"
expect_run "$scratch/app_pc_static"

# Built and run by `./dev test debug`, which needs the same objects.
say "add_subdirectory"
"$cmake" -G Ninja -S "$app" -B "$scratch/embedded" -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_BUILD_TYPE=Debug -DQRT_CORE_SOURCE_DIR="$source_dir" >/dev/null
if grep -nE '^build [^:]*(qrt_test|qrt_bench|qrt_example)' "$scratch/embedded/build.ninja"; then
  fail "an embedding project gets our tests, benchmarks or examples"
fi
if grep -n 'file(INSTALL' "$scratch/embedded/qrt_core/cmake_install.cmake"; then
  fail "an embedding project installs our files with its own"
fi

echo "The application runs in every way."
