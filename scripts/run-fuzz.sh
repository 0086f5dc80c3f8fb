#!/usr/bin/env bash
# Runs the fuzz targets with libFuzzer, each for SECONDS (default 600), and prints per target
# the runs, executions per second, coverage and findings.
#
#   scripts/run-fuzz.sh [SECONDS] [TARGET...]      TARGET: KLogFile, kxPath, ... (default: all)
#
# Environment:
#   KX_FUZZ_JOBS=N   targets fuzzed at once (default 1; one libFuzzer process each)
#   KX_FUZZ_WORK=DIR scratch directory (default build/fuzz/campaign)
#
# Sets up clang 14 and its runtime with apt-get when they are missing (as root), configures and
# builds the fuzz preset, then runs each target on the committed seeds (tests/fuzz/corpus/TARGET,
# read only) plus DIR/TARGET/corpus, where the inputs it finds interesting are kept; a crash, leak,
# time-out or failed property is written to DIR/TARGET/artifacts and counted as a finding. The
# whole log is DIR/TARGET/log. The summary gives the seconds each target ran (less than asked
# when it stopped at a finding), the inputs run, the executions per second, the coverage
# (edges and features), the new inputs kept and the findings. Exit status: 0 when no target
# found anything, 1 otherwise, 2 when the set-up failed.
set -uo pipefail

cd "$(dirname "$0")/.."
seconds=600
if [[ $# -gt 0 && "$1" =~ ^[0-9]+$ ]]; then
    seconds=$1
    shift
fi
jobs=${KX_FUZZ_JOBS:-1}
work=${KX_FUZZ_WORK:-build/fuzz/campaign}
all=(KLogFile KLogStream kxRPCReply kxXdrResults kxNFS3Pipeline kxPath kxXml kxnfsArgs
     kxlogviewArgs kxTextEscape)
targets=("$@")
((${#targets[@]})) || targets=("${all[@]}")

# The longest input worth trying: a few records' worth of log file, a datagram the client
# reads whole, a stream of several records, paths past the splitters' limits, command lines.
max_len() {
    case "$1" in
        KLogFile | KLogStream) echo 8196 ;;
        kxRPCReply) echo 9000 ;;
        kxNFS3Pipeline) echo 16384 ;;
        kxXdrResults) echo 4096 ;;
        kxXml) echo 64 ;;
        kxnfsArgs | kxlogviewArgs) echo 512 ;;
        *) echo 1024 ;;
    esac
}

# The RPC library allocates a variable-length item of a result (READ data, a READLINK path) at
# the length the sender claims before it finds the message too short: up to 4 GB of lazily
# zeroed memory, never touched, freed at once; where the allocation cannot be made the decode
# fails cleanly. Under ASan the same allocation costs seconds (its shadow is poisoned on free), so
# the decoders of RPC results run as on a machine that cannot give more than 64 MB at once: the C
# library's allocations above that fail, and the clean failure is what gets fuzzed. Allocations
# by new are still reported, and memory actually used is limited by -rss_limit_mb.
asan_options() {
    case "$1" in
        kxRPCReply | kxXdrResults)
            echo "detect_leaks=1:allocator_may_return_null=1:max_allocation_size_mb=64" ;;
        *) echo "detect_leaks=1" ;;
    esac
}

if ! command -v clang++-14 >/dev/null ||
    ! ls /usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1; then
    echo "run-fuzz: installing clang 14 and its runtime"
    export DEBIAN_FRONTEND=noninteractive
    { apt-get update || true; } &&
        apt-get install -y --no-install-recommends clang-14 libclang-rt-14-dev ||
        { echo "run-fuzz: cannot install clang-14 (run as root)" >&2; exit 2; }
fi
launcher=()
command -v ccache >/dev/null &&
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake --preset fuzz "${launcher[@]}" >/dev/null || exit 2
cmake --build --preset fuzz || exit 2

run_one() {
    local t=$1 dir="$work/$1"
    local bin=build/fuzz/fuzz/${t}_fuzz
    [[ -x "$bin" ]] || { echo "run-fuzz: no target $t" >&2; return 1; }
    mkdir -p "$dir/corpus" "$dir/artifacts"
    echo "run-fuzz: $t for ${seconds}s"
    local start=$SECONDS
    ASAN_OPTIONS=${ASAN_OPTIONS:-$(asan_options "$t")} "$bin" "$dir/corpus" "tests/fuzz/corpus/$t" \
        -max_total_time="$seconds" -max_len="$(max_len "$t")" -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$dir/artifacts/" -print_final_stats=1 >"$dir/log" 2>&1
    echo $((SECONDS - start)) >"$dir/seconds"
    return 0
}

# Figures from the final statistics and the last status line of a target's log.
report() {
    local t=$1 dir="$work/$1"
    local log="$dir/log" runs rate cov ft corpus findings took
    runs=$(awk '/stat::number_of_executed_units/ {print $2}' "$log" | tail -1)
    rate=$(awk '/stat::average_exec_per_sec/ {print $2}' "$log" | tail -1)
    cov=$(grep -oE 'cov: [0-9]+' "$log" | tail -1 | awk '{print $2}')
    ft=$(grep -oE 'ft: [0-9]+' "$log" | tail -1 | awk '{print $2}')
    corpus=$(find "$dir/corpus" -type f | wc -l)
    findings=$(find "$dir/artifacts" -type f | wc -l)
    took=$(cat "$dir/seconds" 2>/dev/null)
    printf '%-16s %8s %10s %8s %7s %8s %7s %9s\n' "$t" "${took:-?}" "${runs:-?}" "${rate:-?}" \
        "${cov:-?}" "${ft:-?}" "$corpus" "$findings"
    ((findings == 0))
}

running=0
for t in "${targets[@]}"; do
    run_one "$t" &
    ((++running >= jobs)) && { wait -n; ((running--)); }
done
wait

echo
printf '%-16s %8s %10s %8s %7s %8s %7s %9s\n' target seconds runs exec/s cov features new \
    findings
status=0
for t in "${targets[@]}"; do
    report "$t" || status=1
done
((status == 0)) ||
    echo "run-fuzz: findings are in $work/<target>/artifacts; logs in $work/<target>/log"
exit $status
