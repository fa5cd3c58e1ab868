#ifndef VELMOR_PYTHON_ARRAYINPUT_H_
#define VELMOR_PYTHON_ARRAYINPUT_H_

// Python data in the engine's forms. Argument errors are raised as
// ValueError (std::invalid_argument), with the argument's name in the text.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <optional>
#include <string>
#include <vector>

#include "matrixvector/FeatureSimilarity.h"
#include "sets/UnorderedHashSet.h"
#include "summarization/SummaryPlan.h"

namespace velmor::python {

// A non-empty 2-d matrix whose rows are the items, as element-major storage:
// a C-contiguous float32 or float64 array (np.memmap included) is read where
// it lies and kept alive as long as the storage; any other array (another
// layout or type, a view with strides) is converted once to a C-contiguous
// copy, float64 when its values are float64 and float32 otherwise, with a
// UserWarning that names the cost and how to avoid it.
SummaryPlan::DenseMatrices DenseRows(const pybind11::handle& data, const std::string& name);

// A scipy.sparse matrix in canonical CSR form (sorted, unique indices), given
// by its parts, as the engine's sparse matrix (rows are the items): float64
// values stay double, any other type becomes float32. The parts are checked
// (lengths, bounds, order) before they are read.
SummaryPlan::SparseMatrices SparseRows(const pybind11::handle& data,
                                       const pybind11::handle& indices,
                                       const pybind11::handle& indptr, long rows, long cols,
                                       const std::string& name);

// The similarity of the rows of a 2-d feature array, built by the engine on
// `threads` threads (0: all cores): dense, shared as element-major storage
// (the matrix is symmetric), or, with `neighbours` > 0, sparse keeping each
// row's `neighbours` largest entries. The features are copied once into the
// engine's column-major form, in float64 when they are float64 and float32
// otherwise. The GIL is released while the matrix is built.
SummaryPlan::DenseMatrices DenseSimilarity(const pybind11::handle& features,
                                           FeatureSimilarity<float>::Kind kind, double gamma,
                                           int threads);
SummaryPlan::SparseMatrices NearestSimilarity(const pybind11::handle& features,
                                              FeatureSimilarity<float>::Kind kind, double gamma,
                                              int threads, int neighbours);

// A set over [0, n) from an iterable of integers; None gives nothing.
std::optional<UnorderedHashSet> SetArgument(const pybind11::handle& elements, int n,
                                            const std::string& name);

// A 1-d integer array of values that fit an int.
std::vector<int> IntVector(const pybind11::handle& values, const std::string& name);

}  // namespace velmor::python

#endif  // VELMOR_PYTHON_ARRAYINPUT_H_
