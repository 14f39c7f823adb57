#!/usr/bin/env bash
# Runs commands of ./dev on a clean Debian system in a folder, each on a system of its own, so that every package
# that a command needs is one that it installs. Must be root. Debian packages that were fetched are kept in FOLDER.
# Where CCACHE_DIR names a folder of ccache, compilers on the clean system use it, so that a second run takes minutes.
#
# usage: try_fresh.sh FOLDER COMMAND...    a command may have arguments: "test release"
set -euo pipefail

if (($# < 2)); then
  sed -n 's/^# usage: /usage: /p' "$0" >&2
  exit 2
fi
if ((EUID != 0)); then
  echo "try_fresh.sh: must be root, to make a system in a folder" >&2
  exit 2
fi
source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
folder=$(cd "$1" && pwd)
shift
suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
# What ccache shares between a source tree here and the same one in the clean system.
cached=()
if [[ -n ${CCACHE_DIR:-} ]]; then
  cached=(CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_DIR=/ccache CCACHE_BASEDIR=/source CCACHE_NOHASHDIR=1
    CCACHE_SLOPPINESS="${CCACHE_SLOPPINESS:-}" CCACHE_MAXSIZE="${CCACHE_MAXSIZE:-}")
fi
readonly source_dir folder suite mirror=http://deb.debian.org/debian cache=$folder/cache root=$folder/root
mkdir -p "$cache"
commands=("$@")

say() { printf '\n---- %s\n' "$*"; }

remove_root() {
  local mounted
  for mounted in proc ccache; do
    if mountpoint -q "$root/$mounted"; then umount "$root/$mounted" || return; fi
  done
  rm -rf --one-file-system "$root"
}
trap remove_root EXIT

# Packages that an earlier command fetched needn't be fetched again.
make_root() {
  remove_root
  mkdir -p "$root"
  debootstrap --variant=minbase --cache-dir="$cache" "$suite" "$root" "$mirror" >"$folder/debootstrap.log" 2>&1 || {
    tail -n 20 "$folder/debootstrap.log" >&2
    exit 1
  }
  cp -n "$cache"/*.deb "$root/var/cache/apt/archives/" 2>/dev/null || true
  mount -t proc proc "$root/proc"
  if ((${#cached[@]} > 0)); then
    mkdir "$root/ccache"
    mount --bind "$CCACHE_DIR" "$root/ccache"
    chroot "$root" /usr/bin/env DEBIAN_FRONTEND=noninteractive sh -c \
      'apt-get update && apt-get install -y --no-install-recommends ccache' >>"$folder/debootstrap.log" 2>&1
  fi
  mkdir "$root/source"
  (cd "$source_dir" && git ls-files -z --cached --others --exclude-standard | tar --null --files-from=- --ignore-failed-read -cf -) | tar -C "$root/source" -xf -
}

failed=()
for command in "${commands[@]}"; do
  say "./dev $command, on a clean $suite"
  make_root
  read -ra words <<<"$command"
  start=$SECONDS
  log="$folder/${command// /-}.log"
  if chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 \
    "${cached[@]}" /source/dev "${words[@]}" >"$log" 2>&1 </dev/null; then
    echo "passed after $((SECONDS - start)) s"
  else
    tail -n 40 "$log" >&2
    echo "FAILED after $((SECONDS - start)) s; all of its output: $log" >&2
    failed+=("$command")
  fi
  cp -n "$root"/var/cache/apt/archives/*.deb "$cache/" 2>/dev/null || true
done
if ((${#failed[@]} > 0)); then
  printf 'failed: %s\n' "${failed[*]}" >&2
  exit 1
fi
echo "Every command works on a clean $suite."
