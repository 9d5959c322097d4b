#!/usr/bin/env bash
# Builds the libFuzzer targets with clang, AddressSanitizer and UndefinedBehaviorSanitizer, seeds
# each from the bundled cases, and runs each for a bounded time.
# usage: fuzz/run.sh [SECONDS_PER_TARGET]      (default 30)
# A finding is written to build-fuzz/findings/<target>/; keep it as a regression test by copying
# it into fuzz/regressions/<target>/ once fixed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-30}
"$root/scripts/install-deps.sh" clang libclang-rt-14-dev
build="$root/build-fuzz"
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DICTVCF_FUZZ=ON \
  -DICTVCF_ENABLE_OPENMP=OFF -DICTVCF_BUILD_TESTS=OFF -DICTVCF_BUILD_BENCH=OFF >/dev/null
targets=(input_block dushin_file coupling_file fchk_file orca_hess_file orca_output plain_coupling
  dipole_tables dipole_file)
cmake --build "$build" -j"$(nproc)" $(printf ' --target fuzz_%s' "${targets[@]}")

# Seeds: the bundled cases' input files, Duschinsky files (with an option byte in front) and
# coupling files (with two option bytes in front).
corpus="$build/corpus"
rm -rf "$corpus" && mkdir -p "${targets[@]/#/$corpus/}"
i=0
for case in "$root"/tests/cases/* "$root"/tests/physics/*; do
  [ -d "$case" ] || continue
  i=$((i + 1))
  for f in "$case"/*.inp; do [ -f "$f" ] && cp "$f" "$corpus/input_block/$i-$(basename "$f")"; done
  for f in "$case"/dush*; do
    [ -f "$f" ] || continue
    if [ -f "$case/fort.2" ]; then
      { printf '\x00'; cat "$f"; printf '\n====\n'; cat "$case/fort.2"; } >"$corpus/dushin_file/$i-col"
    else
      { printf '\x01'; cat "$f"; } >"$corpus/dushin_file/$i-l1"
      { printf '\x03'; cat "$f"; } >"$corpus/dushin_file/$i-l1-n3all"
    fi
  done
  for f in "$case"/nac* "$case"/old.out; do
    [ -f "$f" ] || continue
    { printf '\x10\x00'; cat "$f"; } >"$corpus/coupling_file/$i-$(basename "$f")"
    { printf '\x11\x01'; cat "$f"; } >"$corpus/coupling_file/$i-n3all-$(basename "$f")"
  done
done
# The quantum-chemistry readers: the bundled and the real files (with an option byte in front:
# ghost atoms refused or dropped), and the hand-made coupling excerpts in fuzz/seeds/.
for f in "$root"/tests/data/qc/*/*.fchk "$root"/tests/data/qc/real/*/*.fchk; do
  { printf '\x00'; cat "$f"; } >"$corpus/fchk_file/$(basename "$f")"
done
for f in "$root"/tests/data/qc/real/orca/*.hess; do
  { printf '\x01'; cat "$f"; } >"$corpus/orca_hess_file/$(basename "$f")"
done
{ printf '\x01'; cat "$root"/tests/data/qc/real/gaussian/cclib_g16_dvb_td.fchk; } \
  >"$corpus/dipole_tables/dvb_td.fchk"
for t in orca_output plain_coupling dipole_tables dipole_file; do
  cp "$root"/fuzz/seeds/$t/* "$corpus/$t/"
done
for t in "${targets[@]}"; do
  cp "$root"/fuzz/regressions/$t/* "$corpus/$t/" 2>/dev/null || true
done

status=0
for t in "${targets[@]}"; do
  mkdir -p "$build/findings/$t"
  echo "== fuzz_$t for ${seconds}s"
  len=65536
  case $t in fchk_file | orca_hess_file | dipole_tables) len=262144 ;; esac
  if ! (cd "$build/findings/$t" && ASAN_OPTIONS=detect_leaks=1 \
        "$build/fuzz/fuzz_$t" -artifact_prefix="$build/findings/$t/" -max_total_time="$seconds" -max_len=$len -timeout=20 \
        -rss_limit_mb=3072 -close_fd_mask=1 -print_final_stats=1 "$corpus/$t" 2>&1 | tail -n 12); then
    status=1
  fi
  if ls "$build/findings/$t"/crash-* "$build/findings/$t"/timeout-* "$build/findings/$t"/oom-* >/dev/null 2>&1; then
    echo "fuzz_$t: findings in $build/findings/$t"
    status=1
  fi
done
exit $status
