#!/usr/bin/env bash
# Runs two quillo binaries on the same inputs and options and reports whether
# their outputs (order and gains files, the plot script, and the logged lines
# other than timings) are byte-identical.
#
#   tools/compare_quillo_outputs.sh OLD_QUILLO NEW_QUILLO DATA_DIR
#
# DATA_DIR is made on first use: the bundled digits features, a float32
# 10000 x 10000 RBF similarity and small dense/sparse matrices. Each case is
# one line of quillo options below ($D is the data folder). Exit status 0 when
# every case matches.
set -uo pipefail
old=$1 new=$2 data=$3
here=$(cd "$(dirname "$0")" && pwd)
py=/usr/bin/python3
mkdir -p "$data"
[ -f "$data/sim10000.npy" ] || "$py" "$here/make_similarity.py" "$data/sim10000.npy" 10000
[ -f "$data/sim500.npy" ] || "$py" "$here/make_similarity.py" "$data/sim500.npy" 500 --seed 3
[ -f "$data/sim500_f64.npy" ] || "$py" "$here/make_similarity.py" "$data/sim500_f64.npy" 500 --seed 3 --dtype float64
[ -f "$data/sparse500.npz" ] || "$py" - "$data" <<'PY'
import sys, numpy as np, scipy.sparse as sp
d = sys.argv[1]
S = np.load(d + "/sim500.npy")
S[S < np.quantile(S, 0.95)] = 0
sp.save_npz(d + "/sparse500.npz", sp.csr_matrix(S), compressed=False)
PY
[ -f "$data/codes500.csv" ] || "$py" - "$data" <<'PY'
import sys, json, numpy as np
d = sys.argv[1]
np.savetxt(d + "/codes500.csv", np.random.default_rng(5).integers(0, 4, (500, 6)), fmt="%d", delimiter=",")
blocks = [{"block": list(range(b * 50, b * 50 + 50)), "limit": 2} for b in range(10)]
json.dump({"intersection-of-matroids": {"partition-matroids": [{"partition-matroid": {"blocks": blocks}}]}},
          open(d + "/im500.json", "w"))
PY
D=$data
demo="-flfilename $here/../examples/digits_features.csv -fltransformation RBF()"
cases=(
  "$demo -sumsize 12"
  "-flfilename $D/sim10000.npy -sumsize 100"
  "-flfilename $D/sim10000.npy -sumsize 50 -greedyalgorithm accelerated"
  "-flfilename $D/sim500.npy -sumsize 40 -flsoftness 0.1"
  "-flfilename $D/sim500_f64.npy -sumsize 40 -ssdfilename $D/sim500.npy -ssdresponsibility 0.2"
  "-spflfilename $D/sparse500.npz -sumsize 30"
  "-spflfilename $D/sparse500.npz -sumsize 30 -spflsoftness 0.5"
  "-spssdfilename $D/sparse500.npz -flfilename $D/sim500.npy -sumsize 30 -spssdresponsibility 0.1"
  "-flfilename $D/sim500.npy -sumsize 20 -set-contraction 0,1,2 -ctrl-logbalancereport 1 -ctrl-logdetail 1"
  "-flfilename $D/sim500.npy -sumsize 20 -fl-set-attraction 3,4 -fl-set-neglect 5"
  "-flfilename $D/sim500.npy -sumsize 20 -partialenumeration 1 -set-restriction 0-60"
  "-flfilename $D/sim500.npy -sumsize 15 -randomevaluations 5 -flcentralityresponsibility 0.3"
  "-flfilename $D/codes500.csv -flohexpand -fltransformation COSINE() -fl2filename $D/sim500.npy -fl2responsibility 0.5 -sumsize 12 -ctrl-logbalancereport 2 -ctrl-logccurvature -ctrl-logsolution"
  "-flfilename $D/sim500.npy -fltransformation SCALE(1) -flcentralityresponsibility 0.2 -flcentralityspec ROWMEAN() -flcentralitytransformation SCALE(2) -flsavefinalcentralityvector @OUT@/centrality.npy -flsavefinaltransformedmatrix @OUT@/matrix.npy -sumsize 10 -ctrl-lognpv 0 -ctrl-logdetail"
  "-flfilename $D/sim500.npy -flsoftness 0.2 -ssd2filename $D/sim500.npy -ssd2responsibility 0.1 -spssd2filename $D/sparse500.npz -spssd2responsibility 0.1 -sumsize 10 -ctrl-logbalancereport 2"
  "-spflfilename $D/sim500.npy -spfltransformation KNN(20) -spfl-set-attraction 1,2 -spfl-set-contraction 7 -sumsize 10 -set-inclusion 9 -set-deletion 10-20 -ctrl-logdetail"
  "-flfilename $D/sim500.npy -fl-set-attraction RAND(5) -fl-set-contraction RAND(3) -set-restriction RAND(50%) -sumsize 10 -greedyalgorithm stochastic(0.2) -seed 7 -ctrl-logsolution"
  "-flfilename $D/sim500.npy -sumsize 8 -partialenumeration 1 -greedyalgorithm acc:2 -set-restriction 0-30 -ctrl-logpartialenumperiod 7"
  "-flfilename $D/sim500.npy -imjson $D/im500.json -randomevaluations 3 -ctrl-lograndomevalsolutions"
  "-flfilename $D/sim500.npy -sumsize 10 -greedyalgorithm threshold(0.05):2 -set-contraction 4 -ctrl-logbalancereport 2 -ctrl-logccurvature"
  "-flfilename $D/sim500.npy -sumsize 5 -set-restriction 3 -set-deletion 3"
  "-flfilename $D/sim500.npy -sumsize 5 -numlibthreads 0 -ctrl-loglimits 0 -ctrl-logval 0 -loglevels ctrl=debug"
)
fail=0
run() {  # binary outdir options... (@OUT@ in an option stands for outdir)
  local bin=$1 out=$2; shift 2
  mkdir -p "$out"
  "$bin" "${@//@OUT@/$out}" -cloglevel info -ctrl-logorder -ctrl-loggains -ctrl-logcgains \
    -outfilesummary "$out/order.npy" -outfilegains "$out/gains.csv" -pgpyplotfilename "$out/plot.py" \
    > "$out/log" 2>&1
  echo "status $?" >> "$out/log"
  grep -vE 'time|Time' "$out/log" > "$out/log.cmp"; rm "$out/log"
}
work=$(mktemp -d /tmp/quillo_cmp.XXXXXX)
i=0
for c in "${cases[@]}"; do
  i=$((i + 1))
  # shellcheck disable=SC2086
  run "$old" "$work/old$i" $c
  # shellcheck disable=SC2086
  run "$new" "$work/new$i" $c
  if diff -r "$work/old$i" "$work/new$i" > "$work/diff$i"; then
    echo "same      case $i: $c"
  else
    echo "DIFFERENT case $i: $c"; head -20 "$work/diff$i"; fail=1
  fi
done
rm -rf "$work"
exit $fail
