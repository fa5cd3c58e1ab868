#include "io/DenseCSVFileIOSupport.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <system_error>

#include "io/CSVParsing.h"
#include "io/MatrixIOInternal.h"
#include "utils/AtomicOutputFile.h"
#include "utils/error_messages.h"

namespace velmor::matrixio {
namespace {

constexpr int64_t kTransposeBlockRows = 32;

// Number of cells of the line [begin, end): one more than its commas.
int64_t CountCells(const char* begin, const char* end) {
  return static_cast<int64_t>(std::count(begin, end, ',')) + 1;
}

// Appends the cells of a header line, without a final carriage return.
void AppendFieldNames(char* begin, char* end, std::vector<std::string>& field_names) {
  if (end > begin && end[-1] == '\r') *--end = '\0';
  char* cursor = begin;
  while (cursor <= end) {
    char* cell_end;
    char* cell = internal::NextCell(cursor, end, cell_end);
    field_names.emplace_back(cell, cell_end);
  }
}

// Writes `value` in the layout of the CSV writer.
template <typename T>
char* FormatValue(char* first, char* last, T value) {
  if constexpr (std::is_integral_v<T>) {
    return std::to_chars(first, last, value).ptr;
  } else {
    return std::to_chars(first, last, value, std::chars_format::general,
                         std::numeric_limits<T>::digits10)
        .ptr;
  }
}

}  // namespace

template <typename T>
DenseMatrix<T> ReadMatrixFromCSVFile(std::istream& stream, std::vector<std::string>& field_names,
                                     bool header) {
  internal::CSVLineReader reader(stream);
  std::vector<T> values;  // row by row, in reading order
  int64_t rows = 0;
  int64_t cols = -1;
  bool expect_header = header;
  char* line_begin;
  char* line_end;
  while (reader.NextLine(line_begin, line_end)) {
    if (expect_header) {
      expect_header = false;
      AppendFieldNames(line_begin, line_end, field_names);
      continue;
    }
    int64_t count = 0;
    char* cursor = line_begin;
    while (cursor <= line_end) {
      char* cell_end;
      char* cell = internal::NextCell(cursor, line_end, cell_end);
      T value;
      const internal::CellStatus status = internal::ConvertCSVCell(cell, cell_end, value);
      if (status != internal::CellStatus::kOk) {
        internal::ThrowCSVCellError<T>(status, VELMOR_SOURCE_FILE, __func__, __LINE__, cell, rows,
                                       count);
      }
      values.push_back(value);
      ++count;
    }
    VELMOR_CHECK_CSV_COLUMNS(cols, count, rows);
    ++rows;
  }
  if (reader.StreamFailed()) {
    const std::string error = internal::SystemErrorText();
    VELMOR_THROW(std::runtime_error, "Error reading matrix from CSV stream: %s.", error.c_str());
  }
  if (rows == 0) return DenseMatrix<T>();

  DenseMatrix<T> matrix(rows, cols);
  for (int64_t first = 0; first < rows; first += kTransposeBlockRows) {
    const int64_t block = std::min(kTransposeBlockRows, rows - first);
    internal::CopyRowMajorRowsIntoColumnMajor(values.data() + first * cols, block, cols,
                                              matrix.data(), rows, first);
  }
  return matrix;
}

template <typename T>
DenseMatrix<T> ReadMatrixFromCSVFile(const std::string& file_name, bool header,
                                     std::vector<std::string>* field_names) {
  std::ifstream stream(file_name, std::ios_base::in | std::ios_base::binary);
  if (!stream) {
    const std::string error = internal::SystemErrorText();
    VELMOR_THROW(std::runtime_error, "Error reading matrix from csv file '%s': %s.",
                 file_name.c_str(), error.c_str());
  }
  std::vector<std::string> names;
  DenseMatrix<T> matrix = ReadMatrixFromCSVFile<T>(stream, names, header);
  if (field_names != nullptr) field_names->insert(field_names->end(), names.begin(), names.end());
  return matrix;
}

std::pair<int64_t, int64_t> ReadRowsColsFromCSVFile(std::istream& stream, bool header) {
  internal::CSVLineReader reader(stream);
  int64_t lines = 0;
  int64_t cols = -1;
  char* line_begin;
  char* line_end;
  while (reader.NextLine(line_begin, line_end)) {
    const int64_t count = CountCells(line_begin, line_end);
    VELMOR_CHECK_CSV_COLUMNS(cols, count, lines);
    ++lines;
  }
  if (reader.StreamFailed()) {
    const std::string error = internal::SystemErrorText();
    VELMOR_THROW(std::runtime_error, "Error reading matrix from csv stream: %s.", error.c_str());
  }
  if (header && lines > 0) --lines;
  return {lines, std::max<int64_t>(cols, 0)};
}

std::pair<int64_t, int64_t> ReadRowsColsFromCSVFile(const std::string& file_name, bool header) {
  std::ifstream stream(file_name, std::ios_base::in | std::ios_base::binary);
  try {
    if (!stream) throw std::runtime_error(internal::SystemErrorText());
    return ReadRowsColsFromCSVFile(stream, header);
  } catch (const std::exception& e) {
    VELMOR_THROW(std::runtime_error, "Error reading matrix from csv file '%s': %s.",
                 file_name.c_str(), e.what());
  }
}

std::pair<int64_t, int64_t> ReadRowsColsFromCSVFileNoColumnConsistencyCheck(std::istream& stream,
                                                                            bool header) {
  internal::CSVLineReader reader(stream);
  int64_t lines = 0;
  int64_t cols = 0;
  char* line_begin;
  char* line_end;
  while (reader.NextLine(line_begin, line_end)) {
    if (lines == 0) cols = CountCells(line_begin, line_end);
    ++lines;
  }
  if (reader.StreamFailed()) {
    const std::string error = internal::SystemErrorText();
    VELMOR_THROW(std::runtime_error, "Error reading matrix from csv stream: %s.", error.c_str());
  }
  if (header && lines > 0) --lines;
  return {lines, cols};
}

std::pair<int64_t, int64_t> ReadRowsColsFromCSVFileNoColumnConsistencyCheck(
    const std::string& file_name, bool header) {
  std::ifstream stream(file_name, std::ios_base::in | std::ios_base::binary);
  try {
    if (!stream) throw std::runtime_error(internal::SystemErrorText());
    return ReadRowsColsFromCSVFileNoColumnConsistencyCheck(stream, header);
  } catch (const std::exception& e) {
    VELMOR_THROW(std::runtime_error, "Error reading matrix from csv file %s: %s.",
                 file_name.c_str(), e.what());
  }
}

template <typename T>
void WriteMatrixToCSVFile(std::ostream& stream, const DenseMatrix<T>& matrix,
                          const std::vector<std::string>& field_names) {
  if (!field_names.empty() && static_cast<Eigen::Index>(field_names.size()) != matrix.cols()) {
    VELMOR_THROW(std::runtime_error,
                 "Trying to produce matrix with %ld columns but %ld field names.",
                 static_cast<long>(matrix.cols()), static_cast<long>(field_names.size()));
  }
  std::string line;
  if (!field_names.empty()) {
    for (std::size_t i = 0; i < field_names.size(); ++i) {
      if (i > 0) line += ',';
      line += field_names[i];
    }
    line += '\n';
    stream.write(line.data(), static_cast<std::streamsize>(line.size()));
  }
  char number[64];
  for (Eigen::Index r = 0; r < matrix.rows() && stream; ++r) {
    line.clear();
    for (Eigen::Index c = 0; c < matrix.cols(); ++c) {
      if (c > 0) line += ',';
      line.append(number, FormatValue(number, number + sizeof(number), matrix(r, c)));
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
void WriteMatrixToCSVFile(const std::string& file_name, const DenseMatrix<T>& matrix,
                          const std::vector<std::string>& field_names) {
  try {
    WriteWholeFile(file_name, [&](std::ostream& stream) {
      WriteMatrixToCSVFile(stream, matrix, field_names);
    });
  } catch (const std::system_error& error) {
    VELMOR_THROW(std::runtime_error, "Error writing matrix to csv file %s: %s.", file_name.c_str(),
                 error.what());
  }
}

#define VELMOR_INSTANTIATE_DENSE_CSV(T)                                                      \
  template DenseMatrix<T> ReadMatrixFromCSVFile<T>(std::istream&, std::vector<std::string>&, \
                                                   bool);                                    \
  template DenseMatrix<T> ReadMatrixFromCSVFile<T>(const std::string&, bool,                 \
                                                   std::vector<std::string>*);               \
  template void WriteMatrixToCSVFile<T>(std::ostream&, const DenseMatrix<T>&,                \
                                        const std::vector<std::string>&);                    \
  template void WriteMatrixToCSVFile<T>(const std::string&, const DenseMatrix<T>&,           \
                                        const std::vector<std::string>&);

VELMOR_INSTANTIATE_DENSE_CSV(int32_t)
VELMOR_INSTANTIATE_DENSE_CSV(float)
VELMOR_INSTANTIATE_DENSE_CSV(double)

#undef VELMOR_INSTANTIATE_DENSE_CSV

}  // namespace velmor::matrixio
