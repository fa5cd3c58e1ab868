#!/bin/sh
# Size of the test suite against the code it tests, in non-blank lines of the
# files git tracks (a line is blank when it holds only white space). Two
# counts:
#   narrow: the C++ files (.h, .cc) under tests/ against those of the
#           library's core folders (sets, functions, constraints, algorithms,
#           io, matrixvector, utils) and command-line-utils;
#   whole:  every tracked file under tests/ (Python and shell included)
#           against everything we ship or run: the library (with
#           summarization), the programs (command-line-utils, distributed),
#           the Python module, the fuzz harnesses, bench and tools.
# Usage: tools/line_ratio.sh [tree]   (default: the current folder)
set -eu
cd "${1:-.}"
count() {
  git ls-files -z -- "$@" | xargs -0 cat | grep -cv '^[[:space:]]*$'
}
count_cxx() {
  git ls-files -- "$@" | grep -E '\.(h|cc)$' | tr '\n' '\0' | xargs -0 cat |
    grep -cv '^[[:space:]]*$'
}
core="sets functions constraints algorithms io matrixvector utils command-line-utils"
narrow_tests=$(count_cxx tests)
# shellcheck disable=SC2086
narrow_code=$(count_cxx $core)
whole_tests=$(count tests)
# shellcheck disable=SC2086
whole_code=$(count $core summarization distributed python fuzz bench tools)
ratio() { awk -v t="$1" -v c="$2" 'BEGIN { printf "%.1f%%", 100 * t / c }'; }
echo "narrow: tests $narrow_tests, code $narrow_code: $(ratio "$narrow_tests" "$narrow_code")"
echo "whole:  tests $whole_tests, code $whole_code: $(ratio "$whole_tests" "$whole_code")"
