#!/usr/bin/env bash
# Whole-run benchmark of quillo: makes an n x n float32 similarity .npy, runs
# quillo for a summary of k, and prints the run's wall time beside one plain
# read of the same file (warm page cache, both measured here), with the run's
# peak memory from /usr/bin/time -v against the matrix's size.
#
#   bench/quillo_whole_run.sh [build-dir] [n] [k] [more quillo options...]
# e.g. bench/quillo_whole_run.sh build/release 10000 100 -greedyalgorithm accelerated
set -euo pipefail
build=${1:-build/release}
n=${2:-10000}
k=${3:-100}
shift $(( $# < 3 ? $# : 3 ))
quillo="$build/quillo"
python=/usr/bin/python3
work=$(mktemp -d /tmp/quillo_bench.XXXXXX)
trap 'rm -rf "$work"' EXIT

"$python" - "$work/sim.npy" "$n" <<'PY'
import sys, numpy as np
path, n = sys.argv[1], int(sys.argv[2])
rng = np.random.default_rng(7)
S = np.lib.format.open_memmap(path, mode='w+', dtype=np.float32, shape=(n, n))
for start in range(0, n, 1000):
    S[start:start + 1000] = rng.random((min(1000, n - start), n), dtype=np.float32)
S.flush()
PY

bytes=$(stat -c %s "$work/sim.npy")
cat "$work/sim.npy" > /dev/null  # warm the page cache

now() { date +%s.%N; }
# One plain read pass over the file, best of three.
read_time=1e9
for _ in 1 2 3; do
  t0=$(now); cat "$work/sim.npy" > /dev/null; t1=$(now)
  read_time=$(echo "$t1 - $t0" | bc -l | awk -v best="$read_time" '{print ($1 < best) ? $1 : best}')
done

t0=$(now)
/usr/bin/time -v -o "$work/time.txt" "$quillo" -flfilename "$work/sim.npy" -sumsize "$k" \
  -cloglevel info -outfilesummary "$work/order.npy" "$@" > "$work/log.txt"
t1=$(now)
run_time=$(echo "$t1 - $t0" | bc -l)
peak_kb=$(awk -F: '/Maximum resident set size/ {gsub(/ /, "", $2); print $2}' "$work/time.txt")

echo "quillo whole run: n=$n k=$k cores=$(nproc) options: ${*:-none}"
grep -E "Summarization time|Summary valuation" "$work/log.txt" || true
printf 'plain read of %.0f MB: %.3f s\n' "$(echo "$bytes / 1048576" | bc -l)" "$read_time"
printf 'quillo run:         %.3f s  (%.1f x the plain read)\n' "$run_time" "$(echo "$run_time / $read_time" | bc -l)"
printf 'peak memory:        %.0f MB  (%.2f x the matrix)\n' "$(echo "$peak_kb / 1024" | bc -l)" \
  "$(echo "$peak_kb * 1024 / $bytes" | bc -l)"
