#!/usr/bin/env bash
# Sets everything up and runs every test: the native 64-bit build, the 32-bit i386 build and the
# AddressSanitizer + UndefinedBehaviorSanitizer build, each with its whole CTest suite.
#
#   scripts/run-tests.sh [preset...]     default: native i386 sanitize
#
# Exit status: 0 when every suite passed, 1 when a build or a test failed.
set -uo pipefail
cd "$(dirname "$0")/.."

presets=("$@")
((${#presets[@]})) || presets=(native i386 sanitize)

bash scripts/setup-deps.sh --all || { echo "run-tests: set-up failed" >&2; exit 1; }

jobs=$(nproc)
failed=()
for p in "${presets[@]}"; do
    echo "=== ${p}: configure and build"
    if ! cmake --preset "$p" >/dev/null || ! cmake --build --preset "$p" -j"$jobs"; then
        failed+=("$p (build)")
        continue
    fi
    echo "=== ${p}: test"
    # Each test case is its own CTest test, so -j spreads them over the cores.
    if ! ctest --preset "$p" -j"$jobs" --timeout 600; then
        failed+=("$p (tests)")
    fi
done

if ((${#failed[@]})); then
    echo "run-tests: FAILED: ${failed[*]}" >&2
    exit 1
fi
echo "run-tests: all suites passed (${presets[*]})"
