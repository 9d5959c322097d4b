#!/usr/bin/env bash
# Builds ictvcf and runs it on the bundled example (examples/anthracene-like), in a scratch copy.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$root/build" -j"$(nproc)" --target ictvcf
out="$root/build/example-run"
rm -rf "$out" && mkdir -p "$out"
cp "$root"/examples/molecule/* "$out"/
cd "$out"
"$root/build/ictvcf" ic.inp
echo "ictvcf ran on examples/molecule:"
echo "  log:   $out/ic_tvcf.log"
echo "  table: $out/ic_tvcf.dat"
