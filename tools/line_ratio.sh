#!/bin/sh
# Size of the test suite against the code it tests, in non-blank lines of the
# files git tracks (a line is blank when it holds only white space).
#   tests: every tracked file under tests/
#   code:  the library (algorithms, constraints, functions, io, matrixvector,
#          sets, summarization, utils), the programs (command-line-utils,
#          bench) and tools/
# Usage: tools/line_ratio.sh [tree]   (default: the current folder)
set -eu
cd "${1:-.}"
count() {
  git ls-files -z -- "$@" | xargs -0 cat | grep -cv '^[[:space:]]*$'
}
tests=$(count tests)
code=$(count algorithms constraints functions io matrixvector sets summarization utils \
  command-line-utils bench tools)
echo "tests $tests, code $code: $(awk -v t="$tests" -v c="$code" 'BEGIN { printf "%.1f%%", 100 * t / c }')"
