#!/bin/sh
# Times quillo-mpi's exact scheme on P = 1, 2, 4 ranks against single-process
# quillo on one n x n float32 RBF similarity (tools/make_similarity.py), and
# prints each run's wall time, the largest peak resident memory of its
# processes, and its summary value against the single process's.
#
#   bench/quillo_mpi_scaling.sh BUILD_DIR [N] [K] [RANKS...]
set -eu
BUILD=$1 N=${2:-20000} K=${3:-100}
shift $(($# < 3 ? $# : 3))
RANKS=${*:-"1 2 4"}
DIR=$BUILD/mpi-scaling
mkdir -p "$DIR"
DATA=$DIR/rbf_$N.npy
[ -f "$DATA" ] || /usr/bin/python3 "$(dirname "$0")/../tools/make_similarity.py" "$DATA" "$N"
MPIRUN="mpirun --oversubscribe --mca btl self,tcp --mca btl_tcp_if_include lo --mca oob_tcp_if_include lo"
[ "$(id -u)" = 0 ] && MPIRUN="$MPIRUN --allow-run-as-root"
ARGS="-flfilename $DATA -sumsize $K -cloglevel info"

value_of() { sed -n 's/.*f(Solution) = \([^ ]*\).*/\1/p' "$1" | head -1; }
peak_of() { sed -n 's/^peak_kb=//p' "$1" | sort -n | tail -1; }

# The page cache is warmed once so that every run reads the file from memory.
cat "$DATA" >/dev/null
start=$(date +%s.%N)
/usr/bin/time -f "peak_kb=%M" "$BUILD/quillo" $ARGS -outfilesummary "$DIR/single.npy" >"$DIR/single.log" 2>&1
end=$(date +%s.%N)
single_value=$(value_of "$DIR/single.log")
printf "%-10s %8s %14s %22s %s\n" run seconds peak_MiB_per_rank value same_order
printf "%-10s %8.1f %14d %22s %s\n" quillo "$(echo "$end - $start" | bc)" \
  $(($(peak_of "$DIR/single.log") / 1024)) "$single_value" -
for p in $RANKS; do
  start=$(date +%s.%N)
  $MPIRUN -np "$p" /usr/bin/time -f "peak_kb=%M" "$BUILD/quillo-mpi" $ARGS \
    -outfilesummary "$DIR/mpi$p.npy" >"$DIR/mpi$p.log" 2>&1
  end=$(date +%s.%N)
  same=no
  cmp -s "$DIR/single.npy" "$DIR/mpi$p.npy" && same=yes
  printf "%-10s %8.1f %14d %22s %s\n" "P=$p" "$(echo "$end - $start" | bc)" \
    $(($(peak_of "$DIR/mpi$p.log") / 1024)) "$(value_of "$DIR/mpi$p.log")" "$same"
done
