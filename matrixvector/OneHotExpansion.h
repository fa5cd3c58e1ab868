#ifndef VELMOR_MATRIXVECTOR_ONEHOTEXPANSION_H_
#define VELMOR_MATRIXVECTOR_ONEHOTEXPANSION_H_

// One-hot expansion of an integer-coded matrix: rows are items, column j holds
// item i's code in 0..m_j for categorical feature j. Column j becomes m_j + 1
// 0/1 columns, of which the one of item i's code is 1. The expanded columns of
// feature j follow those of feature j - 1.

#include "io/MatrixIOCommon.h"

namespace velmor {

// Throws std::invalid_argument with the message "one-hot expansion needs
// non-negative integer codes, but entry (%d,%d) is %g." (no location; the
// caller may put a name in front) for the first entry, column by column, that
// is negative, not a whole number, above 2^20 or NaN. T is float or double.
template <typename T>
matrixio::DenseMatrix<T> ExpandOneHot(const matrixio::DenseMatrix<T>& codes);

}  // namespace velmor

#endif  // VELMOR_MATRIXVECTOR_ONEHOTEXPANSION_H_
