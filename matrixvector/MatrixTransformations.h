#ifndef VELMOR_MATRIXVECTOR_MATRIXTRANSFORMATIONS_H_
#define VELMOR_MATRIXVECTOR_MATRIXTRANSFORMATIONS_H_

// Matrix transformation pipelines: a '|'-separated list of keyword calls
// applied in order to a loaded matrix, for example
//
//     RBF(0.5) | KNN(10) | SYMMETRIZE()
//
// Keywords may be shortened to any unambiguous prefix (COS() is COSINE()).
// Feature transformations read the rows of the matrix as feature vectors
// x_0 .. x_{n-1} and replace it by an n x n similarity matrix:
//   RBF(gamma)       exp(-gamma ||x_i - x_j||^2); without gamma, 1 / the median
//                    squared distance between distinct rows (exact)
//   COSINE()         x_i.x_j / (||x_i|| ||x_j||), 0 where a row is all zero
//   DOT()            x_i.x_j
//   EUCLIDEANSIM()   max distance - ||x_i - x_j||
// They are computed by FeatureSimilarity (see there for the arithmetic and
// the memory), on the threads of the options; the results are the same for
// every thread count. A feature transformation directly followed by KNN(k)
// keeps only the k largest entries of each row while it computes, so the
// n x n matrix is never held when the sparse form is asked for.
// Entry-wise and structural transformations:
//   ABS()  SCALE(a)  SHIFT(b)  CLIP(lo,hi)  SYMMETRIZE() = (S + S^T) / 2
//   TRANSPOSE()      KNN(k): keep the k largest entries of each row, zero
//                    the rest (a matrix asked for in sparse form becomes
//                    sparse here, storing only the kept entries)
//   PRINT()          the matrix to the mxfm logger, at info level
//   SAVE(file)       the matrix to a file chosen by its extension
// A sparse matrix accepts ABS, SCALE, CLIP (on stored entries), SYMMETRIZE,
// TRANSPOSE, KNN, PRINT and SAVE; the others need a dense matrix.
//
// Errors are std::invalid_argument with a source message naming the step;
// the matrix may have been changed by the steps before a failing one.

#include <string>

#include "io/MatrixIOCommon.h"

namespace velmor {

// A matrix in dense or sparse form, as a transformation pipeline sees it.
template <typename T>
struct TransformableMatrix {
  matrixio::DenseMatrix<T> dense;
  matrixio::SparseMatrix<T> sparse;
  bool is_sparse = false;
  // Known to be symmetric bit for bit (set by the feature transformations and
  // SYMMETRIZE, kept by the entry-wise steps and TRANSPOSE). A symmetric
  // dense matrix's column-major storage is also its element-major layout:
  // element v's row is contiguous.
  bool symmetric = false;

  int rows() const { return static_cast<int>(is_sparse ? sparse.rows() : dense.rows()); }
  int cols() const { return static_cast<int>(is_sparse ? sparse.cols() : dense.cols()); }
};

struct TransformationOptions {
  // KNN produces the sparse form, and a dense matrix left at the end is
  // converted to sparse form keeping its non-zero entries.
  bool want_sparse = false;
  // Threads of the feature transformations: >= 1, or 0 for the machine's cores.
  int threads = 0;
};

// Applies `pipeline` (empty or blank: no change) in order.
template <typename T>
void ApplyMatrixTransformation(const std::string& pipeline, TransformableMatrix<T>& matrix,
                               const TransformationOptions& options);

// The same with the machine's cores.
template <typename T>
void ApplyMatrixTransformation(const std::string& pipeline, TransformableMatrix<T>& matrix,
                               bool want_sparse = false);

// The dense-only convenience form, on the machine's cores.
template <typename T>
void ApplyMatrixTransformation(const std::string& pipeline, matrixio::DenseMatrix<T>& matrix);

}  // namespace velmor

#endif  // VELMOR_MATRIXVECTOR_MATRIXTRANSFORMATIONS_H_
