#!/usr/bin/env bash
# NFS transfer throughput: kxnfs get and put of one file against nfs-ganesha on loopback, timed
# beside nfs-cp (libnfs-utils, an independent user-space client) on the same server, export and
# file in the same run. Prints each client's median time and rate, and the ratio
# nfs-cp time / kxnfs time (above 1: kxnfs is faster). Then the peak memory of listing a
# directory of 100 and of 100,000 entries, kxnfs ls beside nfs-ls: kxnfs prints each entry as it
# arrives, so its peak should not grow with the directory. JSON goes to OUT when given.
#
#   bench/nfs_bench.sh KXNFS [SIZE_MIB [ROUNDS [OUT]]]     defaults: 256 MiB, 5 rounds
#
# Needs root: the run happens in network and mount namespaces of its own (loopback only, a
# private /run, /var/lib/nfs and a tmpfs holding the export and the local files), with its own
# rpcbind and ganesha, stopped by pid at the end. The export transfers at most 1 MiB per call
# (MaxRead, MaxWrite, PrefRead, PrefWrite). Without the programs or the privilege it says why
# and exits 0, so a benchmark run on a machine without them goes on.
set -euo pipefail

if [[ "${KX_NFS_BENCH_INSIDE:-}" != 1 ]]; then
    kxnfs=${1:?usage: nfs_bench.sh KXNFS [SIZE_MIB [ROUNDS [OUT]]]}
    for p in "$kxnfs" /usr/sbin/rpcbind /usr/bin/ganesha.nfsd /usr/bin/nfs-cp /usr/bin/nfs-ls \
        /usr/bin/time /usr/bin/unshare; do
        if [[ ! -x "$p" ]]; then
            echo "nfs_bench: skipped: $p is not installed (scripts/setup-deps.sh --all)"
            exit 0
        fi
    done
    if ((EUID != 0)); then
        echo "nfs_bench: skipped: needs root for its own network and mount namespaces"
        exit 0
    fi
    export KX_NFS_BENCH_INSIDE=1
    exec unshare --net --mount --propagation private -- "$0" "$(realpath "$kxnfs")" "${@:2}"
fi

kxnfs=$1
size_mib=${2:-256}
rounds=${3:-5}
out=${4:-}

# ---- the sandbox: private mounts, loopback, rpcbind, ganesha ----
mount -t tmpfs -o mode=0755 tmpfs /run
mkdir -p /var/lib/nfs
mount -t tmpfs -o mode=0755 tmpfs /var/lib/nfs
ip link set lo up
work=$(mktemp -d /tmp/kx-nfs-bench.XXXXXX)
mount -t tmpfs -o "size=$((size_mib * 8 + 256))m,mode=0755" tmpfs "$work"
export_dir=$work/export
local_dir=$work/local
mkdir -p "$export_dir" "$local_dir"

pids=()
cleanup() {
    local pid
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
    umount "$work" 2>/dev/null || true
    rmdir "$work" 2>/dev/null || true
}
trap cleanup EXIT

registered() { rpcinfo -p 127.0.0.1 2>/dev/null | awk '{print $1, $3}' | grep -qx "$1 tcp"; }
wait_for() {
    local i
    for ((i = 0; i < 200; i++)); do
        registered "$1" && return 0
        sleep 0.1
    done
    echo "nfs_bench: program $1 did not register" >&2
    return 1
}

/usr/sbin/rpcbind -f -w &
pids+=($!)
wait_for 100000

mib=1048576
cat >"$work/ganesha.conf" <<EOF
NFS_CORE_PARAM { Protocols = 3; Enable_NLM = false; Enable_RQUOTA = false; }
NFSV4 { Graceless = true; }
EXPORT {
    Export_Id = 1; Path = $export_dir; Pseudo = /bench; Access_Type = RW;
    Squash = No_Root_Squash; Protocols = 3; Transports = TCP; SecType = sys;
    MaxRead = $mib; MaxWrite = $mib; PrefRead = $mib; PrefWrite = $mib;
    FSAL { Name = VFS; }
}
EOF
/usr/bin/ganesha.nfsd -F -f "$work/ganesha.conf" -L "$work/ganesha.log" -p "$work/ganesha.pid" &
pids+=($!)
wait_for 100005 || { cat "$work/ganesha.log" >&2; exit 1; }
wait_for 100003 || { cat "$work/ganesha.log" >&2; exit 1; }

# ---- the runs ----
server=127.0.0.1
url() { echo "nfs://$server$export_dir/$1?version=3"; }
head -c "$((size_mib * mib))" /dev/urandom >"$local_dir/source"
cp "$local_dir/source" "$export_dir/source"

# Seconds one command takes; its output is dropped, a failure ends the benchmark.
timed() {
    local start end
    start=$EPOCHREALTIME
    if ! "$@" >/dev/null 2>"$work/last.err"; then
        echo "nfs_bench: failed: $*" >&2
        cat "$work/last.err" >&2
        exit 1
    fi
    end=$EPOCHREALTIME
    awk -v a="$start" -v b="$end" 'BEGIN { printf "%.6f", b - a }'
}

same() {
    if ! cmp -s "$1" "$2"; then
        echo "nfs_bench: $2 differs from $1" >&2
        exit 1
    fi
}

declare -A times
run() {  # run NAME COMMAND...: times one command into times[NAME]
    local name=$1 t
    shift
    t=$(timed "$@") || exit 1
    times[$name]+="$t "
}

# Warm-up: the first transfers pay for ganesha's caches and the first connections.
# nfs-cp creates its local target exclusively, so every target is a new name.
timed "$kxnfs" -t get "$server:$export_dir/source" "$local_dir/warm.kx" >/dev/null || exit 1
timed nfs-cp "$(url source)" "$local_dir/warm.libnfs" >/dev/null || exit 1
rm -f "$local_dir/warm.kx" "$local_dir/warm.libnfs"

for ((r = 1; r <= rounds; r++)); do
    # The clients take turns going first, so a drift of the machine's load hits both alike.
    order=(kx libnfs)
    ((r % 2 == 0)) && order=(libnfs kx)
    for who in "${order[@]}"; do
        if [[ $who == kx ]]; then
            run kx_get "$kxnfs" -t get "$server:$export_dir/source" "$local_dir/kx.get"
            run kx_put "$kxnfs" -t put "$local_dir/source" "$server:$export_dir/kx.$r"
        else
            run libnfs_get nfs-cp "$(url source)" "$local_dir/libnfs.get"
            run libnfs_put nfs-cp "$local_dir/source" "$(url "libnfs.$r")"
        fi
    done
    same "$local_dir/source" "$local_dir/kx.get"
    same "$local_dir/source" "$local_dir/libnfs.get"
    same "$local_dir/source" "$export_dir/kx.$r"
    same "$local_dir/source" "$export_dir/libnfs.$r"
    rm -f "$local_dir/kx.get" "$local_dir/libnfs.get"
    # Removed through the server, which lets go of the files it holds open (removed behind
    # its back, they would keep their space in the tmpfs).
    for f in "kx.$r" "libnfs.$r"; do
        "$kxnfs" rm "$server:$export_dir/$f" || exit 1
    done
done

div() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.6f", a / b }'; }
median() {
    tr ' ' '\n' <<<"$1" | grep -v '^$' | sort -g | awk '{a[NR] = $1} END {print a[int((NR + 1) / 2)]}'
}

printf '%s MiB file, %s rounds, medians; ratio = nfs-cp time / kxnfs time' "$size_mib" "$rounds"
printf ' (>= 1: kxnfs as fast or faster)\n'
printf '%-6s %12s %12s %12s %12s %8s\n' "" "kxnfs s" "kxnfs MiB/s" "nfs-cp s" "nfs-cp MiB/s" \
    "ratio"
json="{\"size_mib\":$size_mib,\"rounds\":$rounds"
for dir in get put; do
    kx=$(median "${times[kx_$dir]}")
    ln=$(median "${times[libnfs_$dir]}")
    ratio=$(div "$ln" "$kx")
    printf '%-6s %12.3f %12.1f %12.3f %12.1f %8.2f\n' "$dir" "$kx" \
        "$(div "$size_mib" "$kx")" "$ln" "$(div "$size_mib" "$ln")" "$ratio"
    json+=",\"$dir\":{\"kxnfs_s\":$kx,\"nfscp_s\":$ln,\"ratio\":$(printf '%.3f' "$ratio")}"
done

# ---- listing memory ----
# Peak resident kB of one command; its output is dropped, a failure ends the benchmark.
peak_kb() {
    if ! /usr/bin/time -f %M -o "$work/peak" "$@" >/dev/null 2>"$work/last.err"; then
        echo "nfs_bench: failed: $*" >&2
        cat "$work/last.err" >&2
        exit 1
    fi
    tail -n 1 "$work/peak"
}
for n in 100 100000; do
    mkdir "$export_dir/list$n"
    (cd "$export_dir/list$n" && seq -f "entry-with-a-longish-name-%06g" "$n" | xargs touch)
done
printf '\nls, peak resident kB: 100 entries, 100,000 entries, growth\n'
json+=",\"ls_peak_kb\":{"
for who in kxnfs nfs-ls; do
    peaks=()
    for n in 100 100000; do
        if [[ $who == kxnfs ]]; then
            peaks+=("$(peak_kb "$kxnfs" ls -l "$server:$export_dir/list$n")")
        else
            peaks+=("$(peak_kb nfs-ls "$(url "list$n")")")
        fi
    done
    printf '%-6s %12s %12s %12s\n' "$who" "${peaks[0]}" "${peaks[1]}" "$((peaks[1] - peaks[0]))"
    [[ $who == nfs-ls ]] && json+=","
    json+="\"$who\":[${peaks[0]},${peaks[1]}]"
done
json+="}}"
[[ -n "$out" ]] && echo "$json" >"$out"
exit 0
