#!/usr/bin/env bash
# Builds the native benchmarks and runs them all, each as medians of three repetitions.
# Results go to standard output and, as JSON, to build/bench-results/<benchmark>.json.
#
#   scripts/run-bench.sh [benchmark...]     default: every bench/*_bench.cpp, then nfs_bench
#
# nfs_bench (bench/nfs_bench.sh) times kxnfs against nfs-cp on a private nfs-ganesha; it needs
# root and the packages of setup-deps.sh --all, and says why when it skips.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup-deps.sh
cmake --preset native >/dev/null
names=()
run_nfs=0
for n in "$@"; do
    if [[ "$n" == nfs_bench ]]; then run_nfs=1; else names+=("$n"); fi
done
if (($# == 0)); then
    for f in bench/*_bench.cpp; do names+=("$(basename "$f" .cpp)"); done
    run_nfs=1
fi
((run_nfs)) && names+=(kxnfs_tool)
cmake --build --preset native -j"$(nproc)" --target "${names[@]}"

out=build/bench-results
mkdir -p "$out"
for b in "${names[@]}"; do
    [[ "$b" == kxnfs_tool ]] && continue
    echo "=== $b"
    "build/native/bench/$b" --benchmark_repetitions=3 --benchmark_report_aggregates_only=true \
        --benchmark_out="$out/$b.json" --benchmark_out_format=json
done
if ((run_nfs)); then
    echo "=== nfs_bench"
    bash scripts/setup-deps.sh --all >/dev/null
    bash bench/nfs_bench.sh build/native/tools/nfs/kxnfs 256 5 "$out/nfs_bench.json"
fi
