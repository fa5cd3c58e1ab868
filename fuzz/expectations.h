#ifndef VELMOR_FUZZ_EXPECTATIONS_H_
#define VELMOR_FUZZ_EXPECTATIONS_H_

// Expectations of the harnesses, worked out the plain way. For CSV: a text
// split into lines and cells with std::string, each cell converted by the C
// library (the readers' own scanners and fast conversions are checked against
// it). For sparse matrices: the stored entries as a sorted list.

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "io/MatrixIOCommon.h"
#include "io/SparseCSVFileIOSupport.h"

namespace velmor::fuzz {

// The lines of `text`: separated by '\n'; a last line without '\n' counts
// when it is not empty.
inline std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t newline = text.find('\n', begin);
    if (newline == std::string::npos) {
      lines.push_back(text.substr(begin));
      break;
    }
    lines.push_back(text.substr(begin, newline - begin));
    begin = newline + 1;
  }
  return lines;
}

// The cells of a line: one more than its commas.
inline std::vector<std::string> SplitCells(const std::string& line) {
  std::vector<std::string> cells;
  std::size_t begin = 0;
  for (;;) {
    const std::size_t comma = line.find(',', begin);
    cells.push_back(
        line.substr(begin, comma == std::string::npos ? std::string::npos : comma - begin));
    if (comma == std::string::npos) return cells;
    begin = comma + 1;
  }
}

// A cell as the readers must take it: strtol (base 10, within int32), strtof
// or strtod consuming something without a range error, nothing but white
// space after the number, and no NaN or infinity.
template <typename T>
bool ConvertCellPlainly(const std::string& cell, T& value) {
  const char* begin = cell.c_str();
  char* stop = nullptr;
  errno = 0;
  if constexpr (std::is_same_v<T, int32_t>) {
    const long parsed = std::strtol(begin, &stop, 10);
    if (stop == begin || errno == ERANGE || parsed < INT32_MIN || parsed > INT32_MAX) return false;
    value = static_cast<int32_t>(parsed);
  } else {
    const T parsed = std::is_same_v<T, float> ? static_cast<T>(std::strtof(begin, &stop))
                                              : static_cast<T>(std::strtod(begin, &stop));
    if (stop == begin || errno == ERANGE || std::isnan(parsed) || std::isinf(parsed)) return false;
    value = parsed;
  }
  for (const char* p = stop; p < begin + cell.size(); ++p) {
    if (!std::isspace(static_cast<unsigned char>(*p))) return false;
  }
  return true;
}

// Same value, bit for bit (so -0.0 differs from 0.0).
template <typename T>
bool SameBits(T a, T b) {
  return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// The field names of a header line: its cells, less one final '\r'.
inline std::vector<std::string> HeaderNames(std::string line) {
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return SplitCells(line);
}

template <typename T>
using SparseEntries = std::vector<std::tuple<int64_t, int64_t, T>>;

// The stored entries of `m` (explicit zeros included) by row, then column;
// fails the harness check when an entry lies outside the matrix.
template <typename T>
SparseEntries<T> StoredEntries(const matrixio::SparseMatrix<T>& m) {
  SparseEntries<T> entries;
  for (Eigen::Index c = 0; c < m.outerSize(); ++c) {
    for (typename matrixio::SparseMatrix<T>::InnerIterator it(m, c); it; ++it) {
      VELMOR_FUZZ_CHECK(it.row() >= 0 && it.row() < m.rows() && it.col() == c,
                        "an entry outside the matrix");
      entries.emplace_back(it.row(), it.col(), it.value());
    }
  }
  std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
    return std::make_pair(std::get<0>(a), std::get<1>(a)) <
           std::make_pair(std::get<0>(b), std::get<1>(b));
  });
  return entries;
}

template <typename T>
bool SameEntries(const SparseEntries<T>& a, const SparseEntries<T>& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (std::get<0>(a[i]) != std::get<0>(b[i]) || std::get<1>(a[i]) != std::get<1>(b[i]) ||
        !SameBits(std::get<2>(a[i]), std::get<2>(b[i]))) {
      return false;
    }
  }
  return true;
}

// Written as sparse CSV and read back, `m` keeps its shape and its stored
// `entries` (explicit zeros included).
template <typename T>
void CheckSparseCSVRoundTrip(const matrixio::SparseMatrix<T>& m, const SparseEntries<T>& entries) {
  std::stringstream csv;
  matrixio::WriteSparseMatrixToCSVFile<T>(csv, m);
  std::vector<std::string> no_names;
  const matrixio::SparseMatrix<T> back =
      matrixio::ReadSparseMatrixFromCSVFile<T>(csv, no_names, false);
  VELMOR_FUZZ_CHECK(back.rows() == m.rows() && back.cols() == m.cols(), "round trip shape");
  VELMOR_FUZZ_CHECK(SameEntries(StoredEntries(back), entries), "round trip entries");
}

}  // namespace velmor::fuzz

#endif  // VELMOR_FUZZ_EXPECTATIONS_H_
