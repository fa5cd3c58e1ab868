#ifndef VELMOR_IO_SPARSEMATRIXIO_H_
#define VELMOR_IO_SPARSEMATRIXIO_H_

// The front door for sparse matrices (32-bit indices; T = int32_t, float,
// double): read one from a file chosen by extension, write one as CSV, and
// assemble one from parallel index and value arrays.
//
// Reader failures are re-thrown as std::runtime_error "Problems opening file
// '%s'." with the reader's failure nested; nothing is returned on failure.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "io/MatrixIOCommon.h"

namespace velmor::matrixio {

// ".csv"/".CSV": sparse CSV without header; ".npz"/".NPZ": SciPy archive.
// Throws std::invalid_argument "Must specify a file to read from." for a null
// name and std::runtime_error "Sparse matrix files must be either a .npz or
// .csv file type but was given '%s'." for another extension.
template <typename T>
SparseMatrix<T> ReadSparseMatrixFromFile(const char* file_name);

// Exactly one of the two names (not checked against extensions), else
// std::invalid_argument "Must specify one and only one type of matrix to
// produce with arguments given: (%s) and (%s).".
template <typename T>
SparseMatrix<T> ReadSparseMatrixFromFile(const char* csv_file_name, const char* npz_file_name);

// Writes sparse CSV (see WriteSparseMatrixToCSVFile), which
// ReadSparseMatrixFromFile reads back to the same matrix. Any extension other
// than ".csv" throws std::runtime_error "Current version can not write sparse
// matrices to anything but .csv files, but given file name '%s'.".
template <typename T>
void WriteSparseMatrixToFile(const SparseMatrix<T>& matrix, const std::string& file_name);

// The rows x cols matrix with entries (row[k], col[k], value[k]); duplicate
// positions are summed. Throws std::runtime_error "Triplets to construct the
// sparse matrix are of different sizes." for arrays of unequal length,
// "Unable to allocate sparse matrix of size (rows,cols)=(%d,%d)." for negative
// sizes or failed allocation, and "Triplet (%d,%d) lies outside the sparse
// matrix of size (rows,cols)=(%d,%d)." for an index out of range.
template <typename T>
SparseMatrix<T> MapBinaryToSparseMatrix(int rows, int cols, std::span<const int32_t> row,
                                        std::span<const int32_t> col, std::span<const T> value);

// The same from a triplet list.
template <typename T>
SparseMatrix<T> MapBinaryToSparseMatrixTriplet(int rows, int cols,
                                               const std::vector<SparseTriplet<T>>& triplets);

// The same matrix as MapBinaryToSparseMatrix, assembled in place without an
// intermediate triplet list (memory: the matrix plus one index per column).
template <typename T>
SparseMatrix<T> MapBinaryToSparseMatrixMemoryEfficient(int rows, int cols,
                                                       std::span<const int32_t> row,
                                                       std::span<const int32_t> col,
                                                       std::span<const T> value);

}  // namespace velmor::matrixio

namespace velmor {
// The front door is also reachable from the library's top namespace.
using matrixio::MapBinaryToSparseMatrix;
using matrixio::MapBinaryToSparseMatrixMemoryEfficient;
using matrixio::MapBinaryToSparseMatrixTriplet;
using matrixio::ReadSparseMatrixFromFile;
using matrixio::WriteSparseMatrixToFile;
}  // namespace velmor

#endif  // VELMOR_IO_SPARSEMATRIXIO_H_
