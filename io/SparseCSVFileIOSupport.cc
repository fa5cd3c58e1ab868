#include "io/SparseCSVFileIOSupport.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <type_traits>

#include "io/CSVParsing.h"
#include "io/MatrixIOInternal.h"
#include "utils/AtomicOutputFile.h"
#include "utils/error_messages.h"

namespace velmor::matrixio {
namespace {

// The shortest text that reads back to `value`. A subnormal value is written
// exactly in hexadecimal: its shortest decimal form converts only with a
// range error, which the reader refuses.
template <typename T>
char* FormatStoredValue(char* first, char* last, T value) {
  if constexpr (std::is_floating_point_v<T>) {
    if (std::fpclassify(value) == FP_SUBNORMAL) {
      if (std::signbit(value)) *first++ = '-';
      *first++ = '0';
      *first++ = 'x';
      return std::to_chars(first, last, std::fabs(value), std::chars_format::hex).ptr;
    }
  }
  return std::to_chars(first, last, value).ptr;
}

}  // namespace

template <typename T>
SparseMatrix<T> ReadSparseMatrixFromCSVFile(std::istream& stream,
                                            std::vector<std::string>& field_names, bool header) {
  internal::CSVLineReader reader(stream);
  std::vector<SparseTriplet<T>> triplets;
  int64_t rows = 0;
  int64_t cols = -1;
  bool expect_header = header;
  char* line_begin;
  char* line_end;
  while (reader.NextLine(line_begin, line_end)) {
    if (expect_header) {
      expect_header = false;
      if (line_end > line_begin && line_end[-1] == '\r') *--line_end = '\0';
      char* cursor = line_begin;
      while (cursor <= line_end) {
        char* cell_end;
        char* cell = internal::NextCell(cursor, line_end, cell_end);
        field_names.emplace_back(cell, cell_end);
      }
      continue;
    }
    int64_t count = 0;
    char* cursor = line_begin;
    while (cursor <= line_end) {
      char* cell_end;
      char* cell = internal::NextCell(cursor, line_end, cell_end);
      if (cell != cell_end) {
        T value;
        const internal::CellStatus status = internal::ConvertCSVCell(cell, cell_end, value);
        if (status != internal::CellStatus::kOk) {
          internal::ThrowCSVCellError<T>(status, VELMOR_SOURCE_FILE, __func__, __LINE__, cell, rows,
                                         count);
        }
        if (count > std::numeric_limits<int32_t>::max() - 1 ||
            rows > std::numeric_limits<int32_t>::max() - 1) {
          VELMOR_THROW(std::runtime_error, "Error reading sparse matrix from csv stream: %s.",
                       "more than 2^31 - 1 rows or columns");
        }
        triplets.emplace_back(static_cast<int32_t>(rows), static_cast<int32_t>(count), value);
      }
      ++count;
    }
    VELMOR_CHECK_CSV_COLUMNS(cols, count, rows);
    ++rows;
  }
  if (reader.StreamFailed()) {
    const std::string error = internal::SystemErrorText();
    VELMOR_THROW(std::runtime_error, "Error reading sparse matrix from csv stream: %s.",
                 error.c_str());
  }
  if (rows > std::numeric_limits<int32_t>::max() || cols > std::numeric_limits<int32_t>::max()) {
    VELMOR_THROW(std::runtime_error, "Error reading sparse matrix from csv stream: %s.",
                 "more than 2^31 - 1 rows or columns");
  }
  SparseMatrix<T> matrix(rows, std::max<int64_t>(cols, 0));
  matrix.setFromTriplets(triplets.begin(), triplets.end());
  return matrix;
}

template <typename T>
SparseMatrix<T> ReadSparseMatrixFromCSVFile(const std::string& file_name, bool header,
                                            std::vector<std::string>* field_names) {
  errno = 0;
  std::ifstream stream(file_name, std::ios_base::in | std::ios_base::binary);
  if (!stream) {
    const std::string error = internal::SystemErrorText();
    VELMOR_THROW(std::runtime_error, "Error reading matrix from csv file '%s': %s.",
                 file_name.c_str(), error.c_str());
  }
  std::vector<std::string> names;
  SparseMatrix<T> matrix = ReadSparseMatrixFromCSVFile<T>(stream, names, header);
  if (field_names != nullptr) field_names->insert(field_names->end(), names.begin(), names.end());
  return matrix;
}

template <typename T>
void WriteSparseMatrixToCSVFile(std::ostream& stream, const SparseMatrix<T>& matrix) {
  const Eigen::SparseMatrix<T, Eigen::RowMajor, int32_t> by_rows = matrix;
  std::string line;
  char number[64];
  for (Eigen::Index r = 0; r < by_rows.rows() && stream; ++r) {
    line.clear();
    Eigen::Index written_up_to = 0;  // cells written so far on this line
    for (typename Eigen::SparseMatrix<T, Eigen::RowMajor, int32_t>::InnerIterator it(by_rows, r);
         it; ++it) {
      for (; written_up_to < it.col(); ++written_up_to) {
        if (written_up_to > 0) line += ',';
      }
      if (written_up_to > 0) line += ',';
      line.append(number, FormatStoredValue(number, number + sizeof(number), it.value()));
      ++written_up_to;
    }
    for (; written_up_to < by_rows.cols(); ++written_up_to) {
      if (written_up_to > 0) line += ',';
    }
    line += '\n';
    stream.write(line.data(), static_cast<std::streamsize>(line.size()));
  }
  if (!stream) {
    const std::string error = internal::SystemErrorText();
    VELMOR_THROW(std::runtime_error, "Error writing matrix to csv file: %s.", error.c_str());
  }
}

template <typename T>
void WriteSparseMatrixToCSVFile(const std::string& file_name, const SparseMatrix<T>& matrix) {
  try {
    WriteWholeFile(file_name,
                   [&](std::ostream& stream) { WriteSparseMatrixToCSVFile(stream, matrix); });
  } catch (const std::system_error& error) {
    VELMOR_THROW(std::runtime_error, "Error writing matrix to csv file %s: %s.", file_name.c_str(),
                 error.what());
  }
}

#define VELMOR_INSTANTIATE_SPARSE_CSV(T)                                                    \
  template SparseMatrix<T> ReadSparseMatrixFromCSVFile<T>(std::istream&,                    \
                                                          std::vector<std::string>&, bool); \
  template SparseMatrix<T> ReadSparseMatrixFromCSVFile<T>(const std::string&, bool,         \
                                                          std::vector<std::string>*);       \
  template void WriteSparseMatrixToCSVFile<T>(std::ostream&, const SparseMatrix<T>&);       \
  template void WriteSparseMatrixToCSVFile<T>(const std::string&, const SparseMatrix<T>&);

VELMOR_INSTANTIATE_SPARSE_CSV(int32_t)
VELMOR_INSTANTIATE_SPARSE_CSV(float)
VELMOR_INSTANTIATE_SPARSE_CSV(double)

#undef VELMOR_INSTANTIATE_SPARSE_CSV

}  // namespace velmor::matrixio
