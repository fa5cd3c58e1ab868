#include "io/SparseMatrixIO.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

#include "io/MatrixIOInternal.h"
#include "io/SparseCSVFileIOSupport.h"
#include "io/SparseNumpyFileIOSupport.h"
#include "utils/error_messages.h"

namespace velmor::matrixio {
namespace {

const char* OrEmpty(const char* text) { return text != nullptr ? text : ""; }

// Index of the first triplet outside rows x cols, or n when there is none.
std::size_t FirstOutside(int rows, int cols, std::span<const int32_t> row,
                         std::span<const int32_t> col) {
  for (std::size_t k = 0; k < row.size(); ++k) {
    if (row[k] < 0 || row[k] >= rows || col[k] < 0 || col[k] >= cols) return k;
  }
  return row.size();
}

}  // namespace

template <typename T>
SparseMatrix<T> ReadSparseMatrixFromFile(const char* file_name) {
  if (file_name == nullptr)
    VELMOR_THROW(std::invalid_argument, "Must specify a file to read from.");
  const std::string extension = internal::FileExtension(file_name);
  const bool csv = extension == ".csv" || extension == ".CSV";
  const bool npz = extension == ".npz" || extension == ".NPZ";
  if (!csv && !npz) {
    VELMOR_THROW(std::runtime_error,
                 "Sparse matrix files must be either a .npz or .csv file type but was given '%s'.",
                 file_name);
  }
  try {
    if (csv) return ReadSparseMatrixFromCSVFile<T>(std::string(file_name), false);
    return ReadSparseMatrixFromScipyNPZFile<T>(std::string(file_name));
  } catch (...) {
    VELMOR_THROW_NESTED(std::runtime_error, "Problems opening file '%s'.", file_name);
  }
  return {};  // not reached
}

template <typename T>
SparseMatrix<T> ReadSparseMatrixFromFile(const char* csv_file_name, const char* npz_file_name) {
  if ((csv_file_name != nullptr) == (npz_file_name != nullptr)) {
    VELMOR_THROW(std::invalid_argument,
                 "Must specify one and only one type of matrix to produce with arguments given: "
                 "(%s) and (%s).",
                 OrEmpty(csv_file_name), OrEmpty(npz_file_name));
  }
  const char* file_name = csv_file_name != nullptr ? csv_file_name : npz_file_name;
  try {
    if (csv_file_name != nullptr)
      return ReadSparseMatrixFromCSVFile<T>(std::string(csv_file_name), false);
    return ReadSparseMatrixFromScipyNPZFile<T>(std::string(npz_file_name));
  } catch (...) {
    VELMOR_THROW_NESTED(std::runtime_error, "Problems opening file '%s'.", file_name);
  }
  return {};  // not reached
}

template <typename T>
void WriteSparseMatrixToFile(const SparseMatrix<T>& matrix, const std::string& file_name) {
  if (internal::FileExtension(file_name) != ".csv") {
    VELMOR_THROW(
        std::runtime_error,
        "Current version can not write sparse matrices to anything but .csv files, but given file "
        "name '%s'.",
        file_name.c_str());
  }
  WriteSparseMatrixToCSVFile<T>(file_name, matrix);
}

template <typename T>
SparseMatrix<T> MapBinaryToSparseMatrix(int rows, int cols, std::span<const int32_t> row,
                                        std::span<const int32_t> col, std::span<const T> value) {
  if (row.size() != col.size() || row.size() != value.size()) {
    VELMOR_THROW(std::runtime_error,
                 "Triplets to construct the sparse matrix are of different sizes.");
  }
  if (rows < 0 || cols < 0) {
    VELMOR_THROW(std::runtime_error,
                 "Unable to allocate sparse matrix of size (rows,cols)=(%d,%d).", rows, cols);
  }
  if (const std::size_t k = FirstOutside(rows, cols, row, col); k != row.size()) {
    VELMOR_THROW(std::runtime_error,
                 "Triplet (%d,%d) lies outside the sparse matrix of size (rows,cols)=(%d,%d).",
                 row[k], col[k], rows, cols);
  }
  SparseMatrix<T> matrix;
  try {
    std::vector<SparseTriplet<T>> triplets;
    triplets.reserve(row.size());
    for (std::size_t k = 0; k < row.size(); ++k) triplets.emplace_back(row[k], col[k], value[k]);
    matrix.resize(rows, cols);
    matrix.setFromTriplets(triplets.begin(), triplets.end());
  } catch (const std::bad_alloc&) {
    VELMOR_THROW(std::runtime_error,
                 "Unable to allocate sparse matrix of size (rows,cols)=(%d,%d).", rows, cols);
  }
  return matrix;
}

template <typename T>
SparseMatrix<T> MapBinaryToSparseMatrixTriplet(int rows, int cols,
                                               const std::vector<SparseTriplet<T>>& triplets) {
  if (rows < 0 || cols < 0) {
    VELMOR_THROW(std::runtime_error,
                 "Unable to allocate sparse matrix of size (rows,cols)=(%d,%d).", rows, cols);
  }
  for (const SparseTriplet<T>& t : triplets) {
    if (t.row() < 0 || t.row() >= rows || t.col() < 0 || t.col() >= cols) {
      VELMOR_THROW(std::runtime_error,
                   "Triplet (%d,%d) lies outside the sparse matrix of size (rows,cols)=(%d,%d).",
                   t.row(), t.col(), rows, cols);
    }
  }
  SparseMatrix<T> matrix;
  try {
    matrix.resize(rows, cols);
    matrix.setFromTriplets(triplets.begin(), triplets.end());
  } catch (const std::bad_alloc&) {
    VELMOR_THROW(std::runtime_error,
                 "Unable to allocate sparse matrix of size (rows,cols)=(%d,%d).", rows, cols);
  }
  return matrix;
}

template <typename T>
SparseMatrix<T> MapBinaryToSparseMatrixMemoryEfficient(int rows, int cols,
                                                       std::span<const int32_t> row,
                                                       std::span<const int32_t> col,
                                                       std::span<const T> value) {
  if (row.size() != col.size() || row.size() != value.size()) {
    VELMOR_THROW(std::runtime_error,
                 "Triplets to construct the sparse matrix are of different sizes.");
  }
  if (rows < 0 || cols < 0 ||
      row.size() > static_cast<std::size_t>(std::numeric_limits<int32_t>::max())) {
    VELMOR_THROW(std::runtime_error,
                 "Unable to allocate sparse matrix of size (rows,cols)=(%d,%d).", rows, cols);
  }
  if (const std::size_t k = FirstOutside(rows, cols, row, col); k != row.size()) {
    VELMOR_THROW(std::runtime_error,
                 "Triplet (%d,%d) lies outside the sparse matrix of size (rows,cols)=(%d,%d).",
                 row[k], col[k], rows, cols);
  }
  SparseMatrix<T> matrix;
  try {
    matrix.resize(rows, cols);
    matrix.resizeNonZeros(static_cast<Eigen::Index>(row.size()));
    int32_t* outer = matrix.outerIndexPtr();
    int32_t* inner = matrix.innerIndexPtr();
    T* values = matrix.valuePtr();
    // Counting sort by column: outer[j + 1] counts, then prefix sums.
    std::fill(outer, outer + cols + 1, 0);
    for (const int32_t c : col) ++outer[c + 1];
    for (int j = 0; j < cols; ++j) outer[j + 1] += outer[j];
    std::vector<int32_t> next(outer, outer + cols);
    for (std::size_t k = 0; k < row.size(); ++k) {
      const int32_t at = next[col[k]]++;
      inner[at] = row[k];
      values[at] = value[k];
    }
    std::vector<int32_t>().swap(next);
    // Within each column: rows ascending (stable, so duplicates keep their
    // order), duplicates summed, entries moved down over removed ones.
    std::vector<std::pair<int32_t, T>> column;
    int32_t write = 0;
    int32_t begin = outer[0];
    for (int j = 0; j < cols; ++j) {
      const int32_t end = outer[j + 1];
      column.assign(end - begin, {});
      for (int32_t k = begin; k < end; ++k) column[k - begin] = {inner[k], values[k]};
      std::stable_sort(column.begin(), column.end(),
                       [](const auto& a, const auto& b) { return a.first < b.first; });
      outer[j] = write;
      for (std::size_t k = 0; k < column.size(); ++k) {
        if (k > 0 && column[k].first == column[k - 1].first) {
          values[write - 1] += column[k].second;
        } else {
          inner[write] = column[k].first;
          values[write] = column[k].second;
          ++write;
        }
      }
      begin = end;
    }
    outer[cols] = write;
    matrix.resizeNonZeros(write);
  } catch (const std::bad_alloc&) {
    VELMOR_THROW(std::runtime_error,
                 "Unable to allocate sparse matrix of size (rows,cols)=(%d,%d).", rows, cols);
  }
  return matrix;
}

#define VELMOR_INSTANTIATE_SPARSE_IO(T)                                                  \
  template SparseMatrix<T> ReadSparseMatrixFromFile<T>(const char*);                     \
  template SparseMatrix<T> ReadSparseMatrixFromFile<T>(const char*, const char*);        \
  template void WriteSparseMatrixToFile<T>(const SparseMatrix<T>&, const std::string&);  \
  template SparseMatrix<T> MapBinaryToSparseMatrix<T>(                                   \
      int, int, std::span<const int32_t>, std::span<const int32_t>, std::span<const T>); \
  template SparseMatrix<T> MapBinaryToSparseMatrixTriplet<T>(                            \
      int, int, const std::vector<SparseTriplet<T>>&);                                   \
  template SparseMatrix<T> MapBinaryToSparseMatrixMemoryEfficient<T>(                    \
      int, int, std::span<const int32_t>, std::span<const int32_t>, std::span<const T>);

VELMOR_INSTANTIATE_SPARSE_IO(int32_t)
VELMOR_INSTANTIATE_SPARSE_IO(float)
VELMOR_INSTANTIATE_SPARSE_IO(double)

#undef VELMOR_INSTANTIATE_SPARSE_IO

}  // namespace velmor::matrixio
