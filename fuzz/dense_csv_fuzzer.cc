// Dense CSV: the reader against the plain restatement of its rules, the shape
// counters against the reader, and an exact write and read back through .npy.
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/expectations.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/fuzz_targets.h"
#include "io/DenseCSVFileIOSupport.h"
#include "io/DenseNumpyFileIOSupport.h"

namespace velmor::fuzz {
namespace {

using matrixio::DenseMatrix;

template <typename T>
void CheckDenseCSV(const std::string& text, bool header) {
  // What the reader must give: every cell converted, one column count.
  const std::vector<std::string> lines = SplitLines(text);
  const std::size_t first = header && !lines.empty() ? 1 : 0;
  const std::vector<std::string> names =
      first == 1 ? HeaderNames(lines[0]) : std::vector<std::string>();
  bool valid = true;
  std::size_t cols = 0;
  std::vector<T> values;
  for (std::size_t i = first; i < lines.size() && valid; ++i) {
    const std::vector<std::string> cells = SplitCells(lines[i]);
    if (i == first) cols = cells.size();
    valid = cells.size() == cols;
    for (std::size_t c = 0; c < cells.size() && valid; ++c) {
      T value{};
      valid = ConvertCellPlainly(cells[c], value);
      values.push_back(value);
    }
  }
  const int64_t rows = static_cast<int64_t>(lines.size() - first);

  std::istringstream in(text);
  std::vector<std::string> read_names;
  DenseMatrix<T> m;
  const bool read =
      Succeeds([&] { m = matrixio::ReadMatrixFromCSVFile<T>(in, read_names, header); });
  VELMOR_FUZZ_CHECK(read == valid, read ? "read an invalid text" : "refused a valid text");
  if (!read) return;
  VELMOR_FUZZ_CHECK(m.rows() == rows && m.cols() == (rows > 0 ? static_cast<int64_t>(cols) : 0),
                    "shape");
  for (int64_t r = 0; r < m.rows(); ++r) {
    for (int64_t c = 0; c < m.cols(); ++c) {
      VELMOR_FUZZ_CHECK(SameBits(m(r, c), values[static_cast<std::size_t>(r) * cols + c]),
                        "value at row " + std::to_string(r) + ", col " + std::to_string(c));
    }
  }
  VELMOR_FUZZ_CHECK(read_names == names, "field names");

  // The counters see the same lines; the checking one also compares the
  // header line's cells, so with a header it may refuse.
  std::istringstream count_in(text);
  std::pair<int64_t, int64_t> shape;
  const bool counted =
      Succeeds([&] { shape = matrixio::ReadRowsColsFromCSVFile(count_in, header); });
  VELMOR_FUZZ_CHECK(counted || header, "the counter refused what the reader read");
  if (counted) {
    VELMOR_FUZZ_CHECK(shape.first == m.rows() && (m.rows() == 0 || shape.second == m.cols()),
                      "the counter's shape");
  }
  std::istringstream loose_in(text);
  const std::pair<int64_t, int64_t> loose =
      matrixio::ReadRowsColsFromCSVFileNoColumnConsistencyCheck(loose_in, header);
  VELMOR_FUZZ_CHECK(loose.first == m.rows(), "the loose counter's rows");

  // Written as .npy and read back: the same matrix, bit for bit.
  if (m.size() == 0) return;
  std::stringstream npy;
  matrixio::WriteMatrixToNumpyFile<T>(npy, m, text.size() % 2 == 1);
  const DenseMatrix<T> back = matrixio::ReadMatrixFromNumpyFile<T>(npy);
  VELMOR_FUZZ_CHECK(back.rows() == m.rows() && back.cols() == m.cols(), ".npy round trip shape");
  for (int64_t i = 0; i < m.size(); ++i) {
    VELMOR_FUZZ_CHECK(SameBits(back.data()[i], m.data()[i]), ".npy round trip value");
  }
  // Integers are written exactly as CSV too.
  if constexpr (std::is_same_v<T, int32_t>) {
    std::stringstream csv;
    matrixio::WriteMatrixToCSVFile<T>(csv, m, {});
    std::vector<std::string> no_names;
    VELMOR_FUZZ_CHECK(matrixio::ReadMatrixFromCSVFile<T>(csv, no_names, false) == m,
                      "CSV round trip");
  }
}

}  // namespace

int FuzzDenseCSV(const uint8_t* data, std::size_t size) {
  const std::string text = InputText(data, size);
  for (const bool header : {false, true}) {
    ForEachElementType([&](auto type) { CheckDenseCSV<decltype(type)>(text, header); });
  }
  return 0;
}

}  // namespace velmor::fuzz

VELMOR_FUZZ_ENTRY_POINT(velmor::fuzz::FuzzDenseCSV)
