#include "ArrayInput.h"

#include <fmt/format.h>

#include <climits>
#include <cstdint>
#include <memory>
#include <utility>

#include "WatchedRun.h"
#include "utils/error_messages.h"

namespace velmor::python {
namespace py = pybind11;
namespace {

// Drops the reference that keeps a caller's array alive once the engine lets
// go of its values; it may run on any thread.
struct ReleaseArray {
  PyObject* owner;
  void operator()(const void*) const {
    py::gil_scoped_acquire gil;
    Py_DECREF(owner);
  }
};

// `data` as a numpy array, or a ValueError naming the argument.
py::array AsArray(const py::handle& data, const std::string& name) {
  py::array array = py::array::ensure(data);
  if (!array) {
    PyErr_Clear();
    VELMOR_THROW(std::invalid_argument, "%s cannot be read as a numpy array.", name.c_str());
  }
  return array;
}

py::array Checked2d(const py::handle& data, const std::string& name) {
  py::array array = AsArray(data, name);
  if (array.ndim() != 2 || array.shape(0) < 1 || array.shape(1) < 1) {
    std::string shape;
    for (py::ssize_t d = 0; d < array.ndim(); ++d) {
      shape += (d > 0 ? ", " : "") + std::to_string(array.shape(d));
    }
    VELMOR_THROW(std::invalid_argument, "%s must be a non-empty 2-d array, not one of shape (%s).",
                 name.c_str(), shape.c_str());
  }
  return array;
}

bool IsDouble(const py::array& array) {
  return array.dtype().kind() == 'f' && array.dtype().itemsize() == 8;
}

template <typename T>
bool ReadableInPlace(const py::array& array) {
  return array.dtype().equal(py::dtype::of<T>()) && (array.flags() & py::array::c_style) != 0 &&
         reinterpret_cast<std::uintptr_t>(array.data()) % alignof(T) == 0;
}

template <typename T>
SummaryPlan::DenseMatrices SharedRows(const py::array& array) {
  DenseMatrixInput<T> input;
  Py_INCREF(array.ptr());
  input.element_major = std::shared_ptr<T>(static_cast<T*>(const_cast<void*>(array.data())),
                                           ReleaseArray{array.ptr()});
  input.items = array.shape(0);
  input.values_per_item = array.shape(1);
  return input;
}

// A C-contiguous copy of `array` in T, announced by a UserWarning.
template <typename T>
py::array ConvertedWithWarning(const py::array& array, const std::string& name,
                               const std::string& origin) {
  const char* target = sizeof(T) == 8 ? "float64" : "float32";
  const std::string type =
      origin.empty() ? py::str(array.dtype()).cast<std::string>() : "a Python " + origin;
  const double megabytes = static_cast<double>(array.shape(0)) *
                           static_cast<double>(array.shape(1)) * sizeof(T) / (1024.0 * 1024.0);
  const std::string text = fmt::format(
      "velmor: {} ({}x{}, {}{}) is copied once into a C-contiguous {} array ({:.1f} MB more "
      "memory); pass np.ascontiguousarray({}, dtype=np.{}) to have it read in place.",
      name, array.shape(0), array.shape(1), type,
      (array.flags() & py::array::c_style) != 0 ? "" : ", not C-contiguous", target, megabytes,
      name, target);
  if (PyErr_WarnEx(PyExc_UserWarning, text.c_str(), 2) != 0) throw py::error_already_set();
  auto converted = py::array_t<T, py::array::c_style | py::array::forcecast>::ensure(array);
  if (!converted) {
    PyErr_Clear();
    VELMOR_THROW(std::invalid_argument, "%s of type %s cannot be converted to %s.", name.c_str(),
                 type.c_str(), target);
  }
  return converted;
}

// `origin`: the type name of a Python object that is not an array (and was
// made into one), empty for an array.
template <typename T>
SummaryPlan::DenseMatrices DenseRowsIn(const py::array& array, const std::string& name,
                                       const std::string& origin) {
  if (origin.empty() && ReadableInPlace<T>(array)) return SharedRows<T>(array);
  return SharedRows<T>(ConvertedWithWarning<T>(array, name, origin));
}

// The engine's column-major copy of a 2-d feature array.
template <typename T>
typename FeatureSimilarity<T>::Matrix FeatureMatrix(const py::array& array,
                                                    const std::string& name) {
  auto rows = py::array_t<T, py::array::c_style | py::array::forcecast>::ensure(array);
  if (!rows) {
    PyErr_Clear();
    VELMOR_THROW(std::invalid_argument, "%s cannot be converted to floating point.", name.c_str());
  }
  using RowMajor = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
  return Eigen::Map<const RowMajor>(rows.data(), rows.shape(0), rows.shape(1));
}

std::pair<FeatureSimilarity<float>::Kind, FeatureSimilarity<double>::Kind> BothKinds(
    FeatureSimilarity<float>::Kind kind) {
  return {kind, static_cast<FeatureSimilarity<double>::Kind>(kind)};
}

// Runs build(similarity) off the GIL for a similarity of the given kind
// (checked here first), stopping it within a tile when Ctrl-C arrives
// (KeyboardInterrupt is raised then).
template <typename T, typename Build>
void BuildWatched(typename FeatureSimilarity<T>::Kind kind, double gamma, int threads,
                  const Build& build) {
  FeatureSimilarity<T> similarity(kind, gamma, threads);
  RunSignals signals;
  similarity.SetStopFlag(&signals.stop);
  RunWatched([&] { build(similarity); }, signals, py::none());
}

template <typename T>
SummaryPlan::DenseMatrices DenseSimilarityIn(const py::array& features,
                                             typename FeatureSimilarity<T>::Kind kind, double gamma,
                                             int threads) {
  auto matrix = FeatureMatrix<T>(features, "features");
  std::shared_ptr<typename FeatureSimilarity<T>::Matrix> held;
  BuildWatched<T>(kind, gamma, threads, [&](const FeatureSimilarity<T>& similarity) {
    held = std::make_shared<typename FeatureSimilarity<T>::Matrix>(similarity.Dense(matrix));
  });
  DenseMatrixInput<T> input;
  input.items = held->rows();
  input.values_per_item = held->cols();
  input.element_major = std::shared_ptr<T>(held, held->data());
  return input;
}

template <typename T>
SummaryPlan::SparseMatrices NearestSimilarityIn(const py::array& features,
                                                typename FeatureSimilarity<T>::Kind kind,
                                                double gamma, int threads, int neighbours) {
  auto matrix = FeatureMatrix<T>(features, "features");
  matrixio::SparseMatrix<T> nearest;
  BuildWatched<T>(kind, gamma, threads, [&](const FeatureSimilarity<T>& similarity) {
    nearest = similarity.Nearest(matrix, neighbours);
  });
  return nearest;
}

// A 1-d integer array from any iterable of integers (an empty one included).
py::array_t<std::int64_t> Integers(const py::handle& values, const std::string& name) {
  py::object sequence = py::reinterpret_borrow<py::object>(values);
  if (!py::isinstance<py::array>(values)) {
    try {
      sequence = py::list(py::reinterpret_borrow<py::object>(values));
    } catch (py::error_already_set&) {
      VELMOR_THROW(std::invalid_argument, "%s must be an iterable of integers.", name.c_str());
    }
  }
  py::array array = AsArray(sequence, name);
  if (array.size() == 0) return py::array_t<std::int64_t>(0);
  const char kind = array.dtype().kind();
  if (array.ndim() != 1 || (kind != 'i' && kind != 'u')) {
    VELMOR_THROW(std::invalid_argument, "%s must be a 1-d sequence of integers, not of %s.",
                 name.c_str(), py::str(array.dtype()).cast<std::string>().c_str());
  }
  return py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>::ensure(array);
}

template <typename T>
SummaryPlan::SparseMatrices SparseRowsIn(const py::handle& data, const std::vector<int>& indices,
                                         const std::vector<int>& indptr, long rows, long cols,
                                         const std::string& name) {
  auto values = py::array_t<T, py::array::c_style | py::array::forcecast>::ensure(data);
  if (!values || values.ndim() != 1 || static_cast<std::size_t>(values.size()) != indices.size()) {
    PyErr_Clear();
    VELMOR_THROW(std::invalid_argument, "%s has %zu indices but not as many numeric values.",
                 name.c_str(), indices.size());
  }
  using RowMajor = Eigen::SparseMatrix<T, Eigen::RowMajor, std::int32_t>;
  const Eigen::Map<const RowMajor> view(rows, cols, static_cast<std::int32_t>(indices.size()),
                                        indptr.data(), indices.data(), values.data());
  return matrixio::SparseMatrix<T>(view);
}

void CheckCsr(const std::vector<int>& indices, const std::vector<int>& indptr, long rows, long cols,
              const std::string& name) {
  if (rows < 1 || cols < 1 || rows > INT_MAX || cols > INT_MAX) {
    VELMOR_THROW(std::invalid_argument, "%s has shape (%ld, %ld); both must be in [1, %d].",
                 name.c_str(), rows, cols, INT_MAX);
  }
  if (indptr.size() != static_cast<std::size_t>(rows) + 1 || indptr.front() != 0 ||
      static_cast<std::size_t>(indptr.back()) != indices.size()) {
    VELMOR_THROW(std::invalid_argument, "%s has an invalid row pointer array.", name.c_str());
  }
  for (long r = 0; r < rows; ++r) {
    if (indptr[r + 1] < indptr[r]) {
      VELMOR_THROW(std::invalid_argument, "%s has a decreasing row pointer at row %ld.",
                   name.c_str(), r);
    }
    for (int j = indptr[r]; j < indptr[r + 1]; ++j) {
      if (indices[j] < 0 || indices[j] >= cols || (j > indptr[r] && indices[j] <= indices[j - 1])) {
        VELMOR_THROW(std::invalid_argument,
                     "%s has column index %d in row %ld, outside [0, %ld) or out of order.",
                     name.c_str(), indices[j], r, cols);
      }
    }
  }
}

}  // namespace

SummaryPlan::DenseMatrices DenseRows(const py::handle& data, const std::string& name) {
  const py::array array = Checked2d(data, name);
  const std::string origin =
      py::isinstance<py::array>(data) ? "" : py::str(data.get_type().attr("__name__"));
  if (IsDouble(array)) return DenseRowsIn<double>(array, name, origin);
  return DenseRowsIn<float>(array, name, origin);
}

SummaryPlan::SparseMatrices SparseRows(const py::handle& data, const py::handle& indices,
                                       const py::handle& indptr, long rows, long cols,
                                       const std::string& name) {
  const std::vector<int> column_indices = IntVector(indices, name + " indices");
  const std::vector<int> row_pointers = IntVector(indptr, name + " indptr");
  CheckCsr(column_indices, row_pointers, rows, cols, name);
  if (IsDouble(AsArray(data, name))) {
    return SparseRowsIn<double>(data, column_indices, row_pointers, rows, cols, name);
  }
  return SparseRowsIn<float>(data, column_indices, row_pointers, rows, cols, name);
}

SummaryPlan::DenseMatrices DenseSimilarity(const py::handle& features,
                                           FeatureSimilarity<float>::Kind kind, double gamma,
                                           int threads) {
  const py::array array = Checked2d(features, "features");
  const auto kinds = BothKinds(kind);
  if (IsDouble(array)) return DenseSimilarityIn<double>(array, kinds.second, gamma, threads);
  return DenseSimilarityIn<float>(array, kinds.first, gamma, threads);
}

SummaryPlan::SparseMatrices NearestSimilarity(const py::handle& features,
                                              FeatureSimilarity<float>::Kind kind, double gamma,
                                              int threads, int neighbours) {
  const py::array array = Checked2d(features, "features");
  const auto kinds = BothKinds(kind);
  if (IsDouble(array)) {
    return NearestSimilarityIn<double>(array, kinds.second, gamma, threads, neighbours);
  }
  return NearestSimilarityIn<float>(array, kinds.first, gamma, threads, neighbours);
}

std::optional<UnorderedHashSet> SetArgument(const py::handle& elements, int n,
                                            const std::string& name) {
  if (elements.is_none()) return std::nullopt;
  const auto values = Integers(elements, name);
  UnorderedHashSet set(n);
  for (py::ssize_t i = 0; i < values.size(); ++i) {
    const std::int64_t v = values.at(i);
    if (v < 0 || v >= n) {
      VELMOR_THROW(std::invalid_argument, "%s holds %lld, outside the ground set [0, %d).",
                   name.c_str(), static_cast<long long>(v), n);
    }
    set.insert(static_cast<int>(v));
  }
  return set;
}

std::vector<int> IntVector(const py::handle& values, const std::string& name) {
  const auto integers = Integers(values, name);
  std::vector<int> result(static_cast<std::size_t>(integers.size()));
  for (py::ssize_t i = 0; i < integers.size(); ++i) {
    const std::int64_t v = integers.at(i);
    if (v < INT_MIN || v > INT_MAX) {
      VELMOR_THROW(std::invalid_argument, "%s holds %lld, beyond the range of int.", name.c_str(),
                   static_cast<long long>(v));
    }
    result[static_cast<std::size_t>(i)] = static_cast<int>(v);
  }
  return result;
}

}  // namespace velmor::python
