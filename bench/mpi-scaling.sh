#!/usr/bin/env bash
# Scaling of a whole run over MPI ranks, one thread each: 1 rank, then 2 ranks, on one synthetic
# molecule. Builds the MPI configuration in build-mpi/.
# usage: bench/mpi-scaling.sh [NMODE] [NT]      (default: 294 modes, 1000 steps)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
n=${1:-294}
nt=${2:-1000}
"$root/scripts/install-deps.sh" libopenmpi-dev openmpi-bin
cmake -S "$root" -B "$root/build-mpi" -DICTVCF_MPI=ON -DICTVCF_BUILD_BENCH=ON >/dev/null
cmake --build "$root/build-mpi" -j"$(nproc)" --target ictvcf ictvcf_bench >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$root/build-mpi/bench/ictvcf_bench" --write-case "$work" "$n" "$nt"
cd "$work"
time_run() {
  local start end
  start=$(date +%s.%N)
  OMP_NUM_THREADS=1 mpirun --allow-run-as-root --oversubscribe -np "$1" "$root/build-mpi/ictvcf" ic.inp
  end=$(date +%s.%N)
  awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f", b - a }' 
}
t1=$(time_run 1); cp ic_tvcf.dat one.dat
t2=$(time_run 2)
cmp -s one.dat ic_tvcf.dat && same="identical" || same="DIFFERENT"
awk -v n="$n" -v p="$((nt + 1))" -v t1="$t1" -v t2="$t2" -v same="$same" 'BEGIN {
  printf "nmode %d, %d time points computed: 1 rank %.2f s, 2 ranks %.2f s, speed-up %.2f, efficiency %.0f%%, tables %s\n",
    n, p, t1, t2, t1 / t2, 50 * t1 / t2, same }' 
