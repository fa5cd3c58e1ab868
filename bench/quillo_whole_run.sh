#!/usr/bin/env bash
# Whole-run benchmark of quillo on data shaped like users' data, against one
# plain read of the same file measured in the same run (warm page cache).
#
# Matrix mode (default): tools/make_similarity.py makes an n x n float32
# similarity .npy (RBF similarity of clustered Gaussian features, or, with
# --kind uniform, independent uniform entries: the adversarial case where
# every gain nearly ties); quillo summarizes it with k elements.
#
# Features mode (--from-features 'PIPELINE'): the same script writes the n x D
# features instead and quillo builds the similarity itself with
# -fltransformation 'PIPELINE' (or, with --sparse, the sparse group:
# -spflfilename features.npy -spfltransformation 'PIPELINE'). Time and peak
# memory are reported against the size of the n x n float32 similarity.
#
# Printed: gain evaluations (when quillo logs a line "... N gain evaluations"),
# the summarization time quillo logs, the whole run's wall time, the plain
# read (none for the sparse group, which never holds the n x n matrix), their
# ratio, the run's CPU time, and peak memory (/usr/bin/time -v) against the
# matrix. The load average is printed too: on a shared machine compare ratios
# and CPU times rather than wall times.
#
#   bench/quillo_whole_run.sh [--build DIR] [--n N] [--k K] [--kind rbf|uniform]
#       [--features D] [--seed S] [--from-features PIPELINE [--sparse]]
#       [--input SIM.npy] [--recache] [-- more quillo options]
# --input runs on an existing n x n similarity .npy (kept) instead of making one,
# e.g. a 14.4 GB one made once with tools/make_similarity.py for n = 60000.
# --recache first drops the matrix file's pages from the page cache and reads it
# back once, as a file read from disk is cached. How the cache holds a file
# changes every figure here, the plain read included: a file just written is
# held in 4 KB pages, which every pass over a mapping of it meets one by one; a
# file read from disk is held in large pieces that the kernel maps 2 MB at a
# time (at n = 60000 the whole run took 17 s the first way, 3.6 s the second).
# e.g. bench/quillo_whole_run.sh --n 10000 -- -greedyalgorithm accelerated
#      bench/quillo_whole_run.sh --n 20000 --features 32 --from-features 'RBF()'
#      bench/quillo_whole_run.sh --n 100000 --features 32 --from-features 'COSINE() | KNN(20)' --sparse
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=build/release
n=10000
k=100
kind=rbf
features=20
seed=7
pipeline=
sparse=0
given_input=
recache=0
while [ $# -gt 0 ]; do
  case "$1" in
    --build) build=$2; shift 2 ;;
    --n) n=$2; shift 2 ;;
    --k) k=$2; shift 2 ;;
    --kind) kind=$2; shift 2 ;;
    --features) features=$2; shift 2 ;;
    --seed) seed=$2; shift 2 ;;
    --from-features) pipeline=$2; shift 2 ;;
    --sparse) sparse=1; shift ;;
    --input) given_input=$2; shift 2 ;;
    --recache) recache=1; shift ;;
    --) shift; break ;;
    *) echo "unknown argument '$1' (see the head of $0)" >&2; exit 2 ;;
  esac
done
if [ -n "$pipeline" ] && [ "$kind" != rbf ]; then
  echo "--from-features writes Gaussian features; --kind applies to matrices only" >&2; exit 2
fi
if [ "$sparse" = 1 ] && [ -z "$pipeline" ]; then
  echo "--sparse needs --from-features" >&2; exit 2
fi
quillo="$build/quillo"
[ -x "$quillo" ] || { echo "no quillo at $quillo" >&2; exit 2; }
python=/usr/bin/python3
work=$(mktemp -d /tmp/quillo_bench.XXXXXX)
trap 'rm -rf "$work"' EXIT

# The data, from one generator: the features alone in features mode.
if [ -n "$given_input" ] && [ -n "$pipeline" ]; then
  echo "--input takes a similarity matrix; it cannot be used with --from-features" >&2; exit 2
fi
if [ -n "$given_input" ]; then
  input="$given_input"
  matrix_bytes=$(stat -c %s "$input")
  n=$("$python" -c "import numpy, sys; print(numpy.load(sys.argv[1], mmap_mode='r').shape[0])" "$input")
  kind="given file $input"
elif [ -n "$pipeline" ]; then
  input="$work/features.npy"
  "$python" "$here/../tools/make_similarity.py" "$input" "$n" --features "$features" \
    --seed "$seed" --features-only
  matrix_bytes=$(( n * n * 4 ))
else
  input="$work/sim.npy"
  "$python" "$here/../tools/make_similarity.py" "$input" "$n" --kind "$kind" \
    --features "$features" --seed "$seed"
  matrix_bytes=$(stat -c %s "$input")
fi

# One plain read pass over a file of the similarity's size, best of three (in
# dense features mode such a file is written for the purpose; the sparse group
# never holds the n x n matrix, so it has no plain read to compare with).
now() { date +%s.%N; }
read_time=
if [ "$sparse" = 0 ]; then
  read_file="$input"
  if [ -n "$pipeline" ]; then
    read_file="$work/plain.bin"
    head -c "$matrix_bytes" /dev/zero > "$read_file"
  fi
  if [ "$recache" = 1 ]; then
    sync "$read_file"
    "$python" -c "import os, sys; fd = os.open(sys.argv[1], os.O_RDONLY); \
os.posix_fadvise(fd, 0, 0, os.POSIX_FADV_DONTNEED); os.close(fd)" "$read_file"
  fi
  cat "$read_file" > /dev/null  # warm the page cache
  read_time=1e9
  for _ in 1 2 3; do
    t0=$(now); cat "$read_file" > /dev/null; t1=$(now)
    read_time=$(echo "$t1 - $t0" | bc -l | awk -v best="$read_time" '{print ($1 < best) ? $1 : best}')
  done
  [ -n "$pipeline" ] && rm -f "$read_file"
fi

if [ -z "$pipeline" ]; then
  input_options=(-flfilename "$input")
elif [ "$sparse" = 1 ]; then
  input_options=(-spflfilename "$input" -spfltransformation "$pipeline")
else
  input_options=(-flfilename "$input" -fltransformation "$pipeline")
fi

t0=$(now)
/usr/bin/time -v -o "$work/time.txt" "$quillo" "${input_options[@]}" -sumsize "$k" \
  -cloglevel info -loglevels optm=debug -flogfilename "$work/optm.log" -floglevel debug \
  -outfilesummary "$work/order.npy" "$@" > "$work/log.txt"
t1=$(now)
run_time=$(echo "$t1 - $t0" | bc -l)
peak_kb=$(awk -F: '/Maximum resident set size/ {gsub(/ /, "", $2); print $2}' "$work/time.txt")
user_s=$(awk -F: '/User time/ {gsub(/ /, "", $2); print $2}' "$work/time.txt")
system_s=$(awk -F: '/System time/ {gsub(/ /, "", $2); print $2}' "$work/time.txt")

if [ -n "$pipeline" ]; then
  echo "quillo from features: n=$n d=$features k=$k transformation '$pipeline'$([ "$sparse" = 1 ] && echo ' (sparse group)') cores=$(nproc) options: ${*:-none}"
else
  echo "quillo whole run: n=$n k=$k data=$kind cores=$(nproc) options: ${*:-none}"
fi
echo "load average:       $(cut -d' ' -f1-3 /proc/loadavg)"
# The greedy's count of gain evaluations, from its debug line in the log file
# (the console shows info and above only, as a user's run does).
evaluations=$(grep -hoE '[0-9]+ gain evaluations' "$work/log.txt" "$work/optm.log" 2>/dev/null |
  tail -1 | cut -d' ' -f1 || true)
echo "gain evaluations:   ${evaluations:-not logged by this quillo}"
grep -E "Summarization time|Summary valuation" "$work/log.txt" || true
if [ -n "$read_time" ]; then
  printf 'plain read of %.0f MB: %.3f s\n' "$(echo "$matrix_bytes / 1048576" | bc -l)" "$read_time"
  printf 'quillo run:         %.3f s  (%.1f x the plain read)\n' "$run_time" \
    "$(echo "$run_time / $read_time" | bc -l)"
else
  printf 'quillo run:         %.3f s\n' "$run_time"
fi
# CPU time is less sensitive than wall time to other work on the machine.
printf 'quillo CPU time:    %.2f s user + %.2f s system\n' "$user_s" "$system_s"
printf 'peak memory:        %.0f MB  (%.3f x the %s of %.0f MB)\n' "$(echo "$peak_kb / 1024" | bc -l)" \
  "$(echo "$peak_kb * 1024 / $matrix_bytes" | bc -l)" \
  "$([ -n "$pipeline" ] && echo 'n x n float32 similarity' || echo matrix)" \
  "$(echo "$matrix_bytes / 1048576" | bc -l)"
