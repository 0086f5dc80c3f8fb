#!/bin/sh
# Fails when a library folder includes a header of a layer above it.
#
# The layers, lowest first: base, platform, log, files, nfs (with the generated xdr/ headers of
# nfs). A folder may include its own headers and those of the layers below it; watcher/ and
# tools/ sit above all of them. Only quoted includes with a folder ("log/KLogStream.h") are
# looked at: system headers and same-folder names carry no layer.
#
# Usage: check-layers.sh [SOURCE_ROOT]   (default: the repository holding this script)
# Exit: 0 clean, 1 some include points upwards (each printed as file:line: text), 2 usage.
root=${1:-$(dirname "$0")/..}
[ -d "$root/common" ] || { echo "usage: $0 [SOURCE_ROOT]" >&2; exit 2; }

rank() {
    case $1 in
        base) echo 0 ;; platform) echo 1 ;; log) echo 2 ;; files) echo 3 ;;
        nfs | xdr) echo 4 ;; watcher | tools) echo 5 ;; *) echo "" ;;
    esac
}

bad=0
for dir in base platform log files nfs watcher tools; do
    case $dir in watcher | tools) top=$root/$dir ;; *) top=$root/common/$dir ;; esac
    [ -d "$top" ] || continue
    own=$(rank "$dir")
    # file:line:#include "folder/name"
    hits=$(grep -rnE --include='*.h' --include='*.cpp' '^[[:space:]]*#[[:space:]]*include[[:space:]]*"[A-Za-z0-9_]+/' "$top")
    [ -n "$hits" ] || continue
    while IFS= read -r hit; do
        folder=$(printf '%s\n' "$hit" | sed -E 's/^[^"]*"([A-Za-z0-9_]+)\/.*/\1/')
        r=$(rank "$folder")
        # Folders that are not layers (a tool's own subfolder, say) are not judged.
        [ -n "$r" ] || continue
        if [ "$r" -gt "$own" ]; then
            echo "${hit#"$root"/}: $dir may not include $folder/" >&2
            bad=1
        fi
    done <<HITS
$hits
HITS
done
[ $bad -eq 0 ] && echo "include graph: no include points to a layer above its own"
exit $bad
