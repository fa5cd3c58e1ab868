#ifndef VELMOR_MATRIXVECTOR_CENTRALITY_H_
#define VELMOR_MATRIXVECTOR_CENTRALITY_H_

// Centrality of the items of a similarity matrix (rows are items): one value
// per item that says how central it is to the rest, chosen by a centrality
// spec string:
//   "ROWMIN()"   the row's smallest entry
//   "ROWMAX()"   the row's largest entry
//   "ROWSUM()"   the sum of the row
//   "ROWMEAN()"  the row's mean
// A modular function over these values rewards central items.

#include <optional>
#include <string>

#include "io/MatrixIOCommon.h"

namespace velmor {

enum class CentralityKind { kRowMin, kRowMax, kRowSum, kRowMean };

// The kind a centrality string names (ROWMIN(), ROWMAX(), ROWSUM(),
// ROWMEAN()); std::nullopt for any other text
// (blanks and lower case included).
std::optional<CentralityKind> CentralityKindFromText(const std::string& text);

// The n x 1 centrality vector of an n x k matrix, each row read in double.
// T is float or double.
template <typename T>
matrixio::DenseMatrix<double> ComputeCentrality(const matrixio::DenseMatrix<T>& matrix,
                                                CentralityKind kind);

}  // namespace velmor

#endif  // VELMOR_MATRIXVECTOR_CENTRALITY_H_
