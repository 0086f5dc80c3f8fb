#!/usr/bin/env bash
# Sets everything up, builds the Watcher and shows it at work in the foreground: it supervises a
# small program that fails twice and then exits cleanly, so the restarts can be seen. With
# logging configured, the Watcher's records are then printed from the log file.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup-deps.sh
cmake --preset native >/dev/null
cmake --build --preset native -j"$(nproc)" --target watcher

demo=$(mktemp -d /tmp/watcher-demo.XXXXXX)
trap 'rm -rf "$demo"' EXIT
cat > "$demo/flaky.sh" <<'PROG'
#!/bin/sh
# Fails on its first two runs, succeeds on the third.
count_file="$1/runs"
n=$(( $(cat "$count_file" 2>/dev/null || echo 0) + 1 ))
echo "$n" > "$count_file"
if [ "$n" -lt 3 ]; then
    echo "flaky: run $n, failing with status $n"
    exit "$n"
fi
echo "flaky: run $n, all good"
exit 0
PROG
chmod +x "$demo/flaky.sh"

export KX_LOG_DIR="$demo/logs" KX_LOG_SIZE=256
echo "\$ watcher -f -d 1 -r 5 $demo/flaky.sh $demo"
status=0
build/native/watcher/watcher -f -d 1 -r 5 "$demo/flaky.sh" "$demo" || status=$?
echo "watcher exited with status $status"

viewer=build/native/tools/kxlogview/kxlogview
if [[ -f "$demo/logs/Default.log" ]] && cmake --build --preset native --target kxlogview >/dev/null 2>&1; then
    echo
    echo "\$ kxlogview $demo/logs/Default.log"
    "$viewer" "$demo/logs/Default.log" || true
fi
