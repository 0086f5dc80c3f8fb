#!/usr/bin/env bash
# Builds the native benchmarks and runs them all, each as medians of three repetitions.
# Results go to standard output and, as JSON, to build/bench-results/<benchmark>.json.
#
#   scripts/run-bench.sh [benchmark...]     default: every bench/*_bench.cpp
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup-deps.sh
cmake --preset native >/dev/null
names=("$@")
if ((${#names[@]} == 0)); then
    for f in bench/*_bench.cpp; do names+=("$(basename "$f" .cpp)"); done
fi
cmake --build --preset native -j"$(nproc)" --target "${names[@]}"

out=build/bench-results
mkdir -p "$out"
for b in "${names[@]}"; do
    echo "=== $b"
    "build/native/bench/$b" --benchmark_repetitions=3 --benchmark_report_aggregates_only=true \
        --benchmark_out="$out/$b.json" --benchmark_out_format=json
done
