#!/bin/sh
# Fails when a file includes a header of a layer above its own. The layers, top to bottom:
#   control/  graph/  formats/  devices/  levels/  support/  platform/
# A folder may include its own layer and those below it. The public headers (include/corvid/)
# include only each other; <corvid/Player.h> is the host's, so below control/ nothing includes
# it, and nothing includes control/ but control/ itself.
# Usage: check-layers.sh [source root]; prints every upward include and exits 1 if any.

root=${1:-$(dirname "$0")/..}
cd "$root" || exit 2

rank() {
    case $1 in
        control) echo 6 ;; graph) echo 5 ;; formats) echo 4 ;; devices) echo 3 ;;
        levels) echo 2 ;; support) echo 1 ;; platform) echo 0 ;; *) echo -1 ;;
    esac
}

status=0
for dir in control graph formats devices levels support platform include/corvid; do
    for file in $(find "$dir" -name '*.h' -o -name '*.cpp'); do
        own=$(rank "$dir")
        # "folder/..." includes of the project, and the public <corvid/...> headers.
        grep -nE '^[[:space:]]*#[[:space:]]*include[[:space:]]*["<](control|graph|formats|devices|levels|support|platform|corvid)/' "$file" |
        while IFS= read -r line; do
            target=$(printf '%s\n' "$line" | sed -E 's/^[0-9]+:[[:space:]]*#[[:space:]]*include[[:space:]]*["<]([a-z]+)\/.*/\1/')
            header=$(printf '%s\n' "$line" | sed -E 's/.*["<]([^">]+)[">].*/\1/')
            bad=""
            if [ "$dir" = include/corvid ]; then
                [ "$target" != corvid ] && bad="a public header includes an internal one"
            elif [ "$target" = corvid ]; then
                [ "$header" = corvid/Player.h ] && [ "$dir" != control ] && bad="the Player header below control/"
            elif [ "$(rank "$target")" -gt "$own" ]; then
                bad="$dir/ includes $target/, a layer above it"
            fi
            [ -n "$bad" ] && echo "$file:${line%%:*}: $header: $bad"
        done
    done
done | { if read -r first; then echo "$first"; cat; exit 1; fi; }
status=$?
[ $status -eq 0 ] && echo "layers: no upward include"
exit $status
