#ifndef VELMOR_IO_MATRIXIOCOMMON_H_
#define VELMOR_IO_MATRIXIOCOMMON_H_

// Matrix types produced by the readers of io/, and the two process-wide
// switches that decide whether readers refuse IEEE specials.
//
// Dense matrices are dynamic-size and column-major; row i of a file is row i
// of the matrix. Sparse matrices are compressed column-major with 32-bit
// signed indices. Element types: int32_t, float and double.

#include <Eigen/Dense>
#include <Eigen/SparseCore>
#include <cstdint>

namespace velmor::matrixio {

template <typename T>
using DenseMatrix = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic, Eigen::ColMajor>;

template <typename T>
using SparseMatrix = Eigen::SparseMatrix<T, Eigen::ColMajor, int32_t>;

template <typename T>
using SparseTriplet = Eigen::Triplet<T, int32_t>;

// When on (the initial state), the CSV, .npy and .npz readers refuse a NaN
// value with "Encountered IEEE NaN during read", and the binary reader does
// too. Thread-safe to read and set.
void SetCheckForIEEENaNOnRead(bool on);
bool CheckForIEEENaNOnRead();

// When on (the initial state), the CSV, .npy and .npz readers refuse an
// infinite value with "Encountered IEEE Inf during read". The binary reader
// never checks for infinities.
void SetCheckForIEEEInfOnRead(bool on);
bool CheckForIEEEInfOnRead();

}  // namespace velmor::matrixio

#endif  // VELMOR_IO_MATRIXIOCOMMON_H_
