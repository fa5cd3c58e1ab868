#!/bin/bash
# Runs each fuzz harness of a built fuzzing folder for FUZZ_SECONDS seconds
# (default 60), one after another at low priority, and prints a table of
# figures. Corpora grow in <build>/corpus/<surface> (seeded from
# fuzz/corpus/<surface>); inputs that fail land in <build>/findings/<surface>,
# logs in <build>/logs. Exits with status 1 when any harness found something.
#
#   fuzz/run_fuzzers.sh build/fuzz [surface ...]

set -u
build=${1:?usage: run_fuzzers.sh BUILD_FOLDER [SURFACE ...]}
build=$(cd "$build" && pwd)  # absolute: a harness may change its working folder
shift
seconds=${FUZZ_SECONDS:-60}
source_dir=$(cd "$(dirname "$0")" && pwd)
surfaces=("$@")
if [ ${#surfaces[@]} -eq 0 ]; then
  for harness in "$build"/fuzz/*_fuzzer; do
    name=$(basename "$harness")
    surfaces+=("${name%_fuzzer}")
  done
fi

mkdir -p "$build/logs" "$build/scratch"
# The harnesses' scratch files (and those a crashed run leaves) stay here.
export TMPDIR="$build/scratch"
summary="$build/logs/summary.txt"
printf '%-22s %9s %12s %10s %8s %8s\n' surface "exec/s" executions corpus "rss MB" findings \
  > "$summary"
status=0
for surface in "${surfaces[@]}"; do
  harness="$build/fuzz/${surface}_fuzzer"
  corpus="$build/corpus/$surface"
  findings="$build/findings/$surface"
  log="$build/logs/$surface.log"
  mkdir -p "$corpus" "$findings"
  options=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1
           -artifact_prefix="$findings/")
  [ -f "$source_dir/dictionaries/$surface.dict" ] &&
    options+=(-dict="$source_dir/dictionaries/$surface.dict")
  # The argument parsers report on standard error by design: keep it quiet.
  case "$surface" in argument_file | command_line) options+=(-close_fd_mask=3) ;; esac
  echo "== $surface: ${seconds}s"
  nice -n 15 "$harness" "${options[@]}" "$corpus" "$source_dir/corpus/$surface" > "$log" 2>&1
  stat() { sed -n "s/^stat::$1: *//p" "$log" | tail -1; }
  found=$(find "$findings" -type f | wc -l)
  printf '%-22s %9s %12s %10s %8s %8s\n' "$surface" "$(stat average_exec_per_sec)" \
    "$(stat number_of_executed_units)" "$(find "$corpus" -type f | wc -l)" \
    "$(stat peak_rss_mb)" "$found" >> "$summary"
  [ "$found" -eq 0 ] || status=1
done
cat "$summary"
exit $status
