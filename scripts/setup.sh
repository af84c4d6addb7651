#!/usr/bin/env bash
# Installs what building and testing need and this machine lacks (Debian 12). Does nothing where all is there.
set -euo pipefail

required=(
    g++ clang clang-tidy clang-format libclang-rt-14-dev binutils
    cmake ninja-build ccache pkg-config python3 git
    libzstd-dev libxxhash-dev rapidjson-dev libsparsehash-dev
    libdw-dev libelf-dev libtraceevent-dev libcli11-dev
    libgtest-dev libgmock-dev libbenchmark-dev)
# Only recording a capture needs it.
optional=linux-perf

# One query for all. Packages that were never known to the machine are told on standard error, which is no news here.
installed=$(dpkg-query -W -f '${Package} ${db:Status-Status}\n' "${required[@]}" "$optional" 2>/dev/null |
    awk '$2 == "installed" { print $1 }' || true)

missing=()
for package in "${required[@]}"; do
    grep -qxF -- "$package" <<<"$installed" || missing+=("$package")
done
optional_missing=no
grep -qxF -- "$optional" <<<"$installed" || optional_missing=yes
[ ${#missing[@]} = 0 ] && [ $optional_missing = no ] && exit 0

if [ "$(id -u)" != 0 ]; then
    if [ ${#missing[@]} != 0 ]; then
        echo "setup.sh: missing packages; as root, run: apt-get install ${missing[*]}" >&2
        exit 1
    fi
    echo "setup.sh: $optional isn't installed; captures can't be recorded here." >&2
    exit 0
fi

export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
trap 'rm -f "$log"' EXIT

apt() { apt-get -y -q -o DPkg::Lock::Timeout=300 -o Acquire::Retries=3 "$@" </dev/null >"$log" 2>&1; }

# A failed update isn't the end: the lists at hand may do.
apt update || echo "setup.sh: apt-get update failed; trying with the package lists at hand." >&2
if [ ${#missing[@]} != 0 ]; then
    echo "setup.sh: installing ${missing[*]}"
    if ! apt install --no-install-recommends "${missing[@]}"; then
        cat "$log" >&2
        echo "setup.sh: apt-get install failed" >&2
        exit 1
    fi
fi
if [ $optional_missing = yes ]; then
    echo "setup.sh: installing $optional"
    apt install --no-install-recommends "$optional" ||
        echo "setup.sh: $optional can't be installed; captures can't be recorded here." >&2
fi
