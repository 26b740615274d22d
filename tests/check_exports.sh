#!/usr/bin/env bash
# Usage: check_exports.sh LIBRARY EXPORTS_DIR [NM]
# Fails when a symbol listed in EXPORTS_DIR/*.txt (one demangled prefix a line,
# '#' comments allowed) is not a defined dynamic symbol of LIBRARY.
set -u
lib=$1
dir=$2
nm=${3:-nm}  # the target's nm in a cross build
syms=$("$nm" -D --defined-only -C "$lib" | cut -d' ' -f3-) || { echo "$nm failed on $lib"; exit 1; }
missing=0
checked=0
for f in "$dir"/*.txt; do
    [ -e "$f" ] || continue
    while IFS= read -r want || [ -n "$want" ]; do
        case "$want" in ''|'#'*) continue ;; esac
        checked=$((checked + 1))
        if ! grep -qF -- "$want" <<<"$syms"; then
            echo "missing export: $want ($(basename "$f"))"
            missing=$((missing + 1))
        fi
    done <"$f"
done
echo "checked $checked exports, $missing missing"
[ "$missing" -eq 0 ]
