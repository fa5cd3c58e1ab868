// Sparse CSV: the reader against the plain restatement of its rules (an empty
// cell is absent, any other is converted), and a write and read back.
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/expectations.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/fuzz_targets.h"
#include "io/SparseCSVFileIOSupport.h"

namespace velmor::fuzz {
namespace {

using matrixio::SparseMatrix;

template <typename T>
void CheckSparseCSV(const std::string& text, bool header) {
  const std::vector<std::string> lines = SplitLines(text);
  const std::size_t first = header && !lines.empty() ? 1 : 0;
  const std::vector<std::string> names =
      first == 1 ? HeaderNames(lines[0]) : std::vector<std::string>();
  bool valid = true;
  std::size_t cols = 0;
  SparseEntries<T> expected;
  for (std::size_t i = first; i < lines.size() && valid; ++i) {
    const std::vector<std::string> cells = SplitCells(lines[i]);
    if (i == first) cols = cells.size();
    valid = cells.size() == cols;
    for (std::size_t c = 0; c < cells.size() && valid; ++c) {
      if (cells[c].empty()) continue;
      T value{};
      valid = ConvertCellPlainly(cells[c], value);
      expected.emplace_back(static_cast<int64_t>(i - first), static_cast<int64_t>(c), value);
    }
  }
  const int64_t rows = static_cast<int64_t>(lines.size() - first);

  std::istringstream in(text);
  std::vector<std::string> read_names;
  SparseMatrix<T> m;
  const bool read =
      Succeeds([&] { m = matrixio::ReadSparseMatrixFromCSVFile<T>(in, read_names, header); });
  VELMOR_FUZZ_CHECK(read == valid, read ? "read an invalid text" : "refused a valid text");
  if (!read) return;
  VELMOR_FUZZ_CHECK(m.rows() == rows && m.cols() == (rows > 0 ? static_cast<int64_t>(cols) : 0),
                    "shape");
  const SparseEntries<T> entries = StoredEntries(m);
  VELMOR_FUZZ_CHECK(SameEntries(entries, expected), "entries");
  VELMOR_FUZZ_CHECK(read_names == names, "field names");

  CheckSparseCSVRoundTrip(m, entries);
}

}  // namespace

int FuzzSparseCSV(const uint8_t* data, std::size_t size) {
  const std::string text = InputText(data, size);
  for (const bool header : {false, true}) {
    ForEachElementType([&](auto type) { CheckSparseCSV<decltype(type)>(text, header); });
  }
  return 0;
}

}  // namespace velmor::fuzz

VELMOR_FUZZ_ENTRY_POINT(velmor::fuzz::FuzzSparseCSV)
