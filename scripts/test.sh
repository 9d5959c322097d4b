#!/usr/bin/env bash
# Builds ictvcf with its tests and runs the whole suite with CTest.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$root/build" -j"$(nproc)"
ctest --test-dir "$root/build" --output-on-failure -j"$(nproc)"
