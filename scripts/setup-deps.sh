#!/usr/bin/env bash
# Installs everything the build, the tests, the demo and the benchmarks use, on Debian 12, as root.
# Safe to run again: apt-get skips what is already there.
#
#   scripts/setup-deps.sh          native build, tests, demo
#   scripts/setup-deps.sh --all    also the i386 toolchain and libraries, the NFS test server and
#                                  nfs-cp
set -euo pipefail

want_all=0
[[ "${1:-}" == "--all" ]] && want_all=1

export DEBIAN_FRONTEND=noninteractive
apt_install() { apt-get install -y --no-install-recommends "$@"; }

# One version string per line, as apt-cache madison lists them for PKG:ARCH.
versions_of() { apt-cache madison "$1" 2>/dev/null | awk -F'|' '{gsub(/ /, "", $2); print $2}' | sort -u; }

# Highest version that both architectures can install, or nothing.
common_version() {
    local best="" v
    while read -r v; do
        [[ -z "$v" ]] && continue
        if [[ -z "$best" ]] || dpkg --compare-versions "$v" gt "$best"; then best="$v"; fi
    done < <(comm -12 <(versions_of "$1:amd64") <(versions_of "$1:i386"))
    printf '%s' "$best"
}

# A shared library that is "Multi-Arch: same" must have the same version on amd64 and i386.
# The archive's i386 and amd64 builds are not always in step (a security update reaches one
# first, or the machine carries an amd64 build newer than any i386 one), so for every library
# the i386 packages pull in and that is installed for amd64 at another version than the i386
# candidate, install one version both architectures have, for both.
align_multiarch() {
    local p have cand common pins=()
    while read -r p; do
        have=$(dpkg-query -W -f='${Version}' "$p:amd64" 2>/dev/null || true)
        [[ -z "$have" ]] && continue
        cand=$(apt-cache policy "$p:i386" | awk '/Candidate:/ {print $2}')
        [[ "$have" == "$cand" ]] && continue
        common=$(common_version "$p")
        if [[ -z "$common" ]]; then
            echo "setup: no version of $p exists for both amd64 and i386" >&2
            continue
        fi
        pins+=("$p:amd64=$common" "$p:i386=$common")
    done < <(apt-cache depends --recurse --no-recommends --no-suggests --no-conflicts \
                 --no-breaks --no-replaces --no-enhances "$@" 2>/dev/null \
             | grep -E '^[a-z0-9].*:i386$' | sed 's/:i386$//' | sort -u)
    if ((${#pins[@]})); then
        echo "setup: aligning amd64/i386 versions: ${pins[*]}"
        apt_install --allow-downgrades "${pins[@]}"
    fi
}

need_update=1
[[ -n "$(find /var/lib/apt/lists -maxdepth 1 -name '*Packages*' -mmin -720 2>/dev/null | head -1)" ]] && need_update=0

if ((want_all)) && ! dpkg --print-foreign-architectures | grep -qx i386; then
    dpkg --add-architecture i386
    need_update=1
fi
# An index that fails to download (a mirror mid-sync) leaves the old one in place; that is not fatal.
((need_update)) && { apt-get update || true; }

apt_install build-essential cmake ninja-build pkg-config git procps \
    libtirpc-dev libcrypt-dev rpcsvc-proto googletest libbenchmark-dev libspdlog-dev \
    python3 iproute2

if ((want_all)); then
    i386_pkgs=(libtirpc-dev:i386 libcrypt-dev:i386)
    apt_install g++-multilib || true
    if ! apt_install "${i386_pkgs[@]}"; then
        align_multiarch "${i386_pkgs[@]}"
        apt_install g++-multilib "${i386_pkgs[@]}"
    fi
    # libnfs-utils: nfs-cp and nfs-ls, the independent client the NFS benchmark compares kxnfs
    # with; time: the peak memory of a listing.
    apt_install rpcbind nfs-ganesha nfs-ganesha-vfs nfs-common libnfs-utils time
fi
