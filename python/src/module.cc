// The velmor Python module: thin bindings that convert, check and forward to
// the library. Set functions are held as ObjectiveSpec values, constraints as
// shared library constraints; maximize runs the library's greedy algorithms
// off the interpreter's lock.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <mutex>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "ArrayInput.h"
#include "CancellableFunction.h"
#include "ObjectiveSpec.h"
#include "WatchedRun.h"
#include "constraints/CardinalitySetConstraint.h"
#include "constraints/IntersectionOfMatroidsSetConstraint.h"
#include "constraints/PartitionMatroidSetConstraint.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"
#include "utils/logging.h"

namespace velmor::python {
namespace py = pybind11;
namespace {

// ----- Exceptions ---------------------------------------------------------------

PyObject* error_root = nullptr;
PyObject* input_data_error = nullptr;
PyObject* parameter_data_error = nullptr;

// what() followed by the nested causes, one per line.
std::string FullMessage(const std::exception& e) {
  std::ostringstream text;
  text << e.what() << '\n';
  exception::PrintNestedExceptions(text, e, 2, 2, '+');
  std::string message = text.str();
  while (!message.empty() && message.back() == '\n') message.pop_back();
  return message;
}

void TranslateExceptions(std::exception_ptr failure) {
  try {
    if (failure) std::rethrow_exception(failure);
  } catch (const exception::InputAndOrParameterDataError& e) {
    PyErr_SetString(parameter_data_error, FullMessage(e).c_str());
  } catch (const exception::InputDataError& e) {
    PyErr_SetString(input_data_error, FullMessage(e).c_str());
  } catch (const exception::VELMORException& e) {
    PyErr_SetString(PyExc_ValueError, FullMessage(e).c_str());
  } catch (const SummaryObjective::GroupError& e) {
    PyErr_SetString(input_data_error, FullMessage(e).c_str());
  } catch (const std::invalid_argument& e) {
    PyErr_SetString(PyExc_ValueError, FullMessage(e).c_str());
  } catch (const std::bad_alloc&) {
    PyErr_SetString(PyExc_MemoryError, "velmor could not allocate the memory it needs.");
  } catch (const std::exception& e) {
    PyErr_SetString(error_root, FullMessage(e).c_str());
  }
}

PyObject* NewException(py::module_& m, const char* name, PyObject* base, const char* doc) {
  const std::string qualified = std::string("velmor.") + name;
  PyObject* type = PyErr_NewExceptionWithDoc(qualified.c_str(), doc, base, nullptr);
  if (type == nullptr) throw py::error_already_set();
  m.add_object(name, py::handle(type));
  return type;
}

// ----- Set functions --------------------------------------------------------------

// An ObjectiveSpec whose objective is built once, whichever thread asks first.
struct Function {
  explicit Function(ObjectiveSpec spec) : spec(std::move(spec)) {}
  ObjectiveSpec spec;
  std::shared_ptr<std::mutex> building = std::make_shared<std::mutex>();

  const SummaryObjective& Objective() const {
    std::lock_guard<std::mutex> lock(*building);
    return spec.Objective();
  }
};

using FunctionKind = SummaryPlan::Kind;

// A one-group objective over dense or sparse matrices.
template <typename Matrices>
Function MatrixFunction(FunctionKind kind, Matrices matrix, double softness, bool normalize) {
  if (!(std::isfinite(softness) && softness >= 0)) {
    VELMOR_THROW(std::invalid_argument, "softness must be a finite value >= 0, not %g.", softness);
  }
  SummaryPlan::FunctionGroup group(kind, "", 1.0, normalize, softness);
  if constexpr (std::is_same_v<Matrices, SummaryPlan::DenseMatrices>) {
    group.dense = std::move(matrix);
  } else {
    group.sparse = std::move(matrix);
  }
  return Function(ObjectiveSpec(std::move(group)));
}

FeatureSimilarity<float>::Kind MetricKind(const std::string& metric) {
  using Kind = FeatureSimilarity<float>::Kind;
  if (metric == "rbf") return Kind::kRbf;
  if (metric == "cosine") return Kind::kCosine;
  if (metric == "dot") return Kind::kDot;
  if (metric == "euclidean") return Kind::kEuclideanSim;
  VELMOR_THROW(std::invalid_argument,
               "Unknown metric '%s': use \"euclidean\", \"cosine\", \"rbf\" or \"dot\".",
               metric.c_str());
}

// The RBF's gamma: None for the default (median heuristic).
double Gamma(const std::string& metric, const py::object& gamma) {
  if (gamma.is_none()) return 0.0;
  if (metric != "rbf") {
    VELMOR_THROW(std::invalid_argument, "gamma is a parameter of the \"rbf\" metric only.");
  }
  const double value = gamma.cast<double>();
  if (!(std::isfinite(value) && value > 0)) {
    VELMOR_THROW(std::invalid_argument, "gamma must be a finite value > 0, not %g.", value);
  }
  return value;
}

// ----- Constraints ----------------------------------------------------------------

struct Constraint {
  std::shared_ptr<const DownClosedSetConstraint> constraint;
};

Constraint PartitionMatroid(const py::handle& labels, const py::handle& limits) {
  return {std::make_shared<PartitionMatroidSetConstraint<std::vector<int>>>(
      IntVector(labels, "labels"), IntVector(limits, "limits"))};
}

Constraint IntersectionOfMatroids(const std::vector<Constraint>& members) {
  std::vector<std::unique_ptr<MatroidSetConstraint>> matroids;
  for (const Constraint& member : members) {
    const auto* matroid = dynamic_cast<const MatroidSetConstraint*>(member.constraint.get());
    if (matroid == nullptr) {
      VELMOR_THROW(std::invalid_argument,
                   "An intersection takes matroids (partition matroids), not %s.",
                   member.constraint->Description().c_str());
    }
    matroids.emplace_back(matroid->CopyNew());
  }
  return {std::make_shared<IntersectionOfMatroidsSetConstraint>(std::move(matroids))};
}

// ----- Maximization ----------------------------------------------------------------

GreedyAlgorithmChoice Choice(const std::string& algorithm, double epsilon, int threads) {
  using Kind = GreedyAlgorithmChoice::Kind;
  GreedyAlgorithmChoice choice;
  if (algorithm == "standard") {
    choice.kind = Kind::kStandard;
  } else if (algorithm == "accelerated") {
    choice.kind = Kind::kAccelerated;
  } else if (algorithm == "stochastic") {
    choice.kind = Kind::kStochastic;
    if (!(epsilon >= 0 && epsilon < 1)) {
      VELMOR_THROW(std::invalid_argument, "The stochastic greedy needs epsilon in [0, 1), not %g.",
                   epsilon);
    }
  } else if (algorithm == "threshold") {
    choice.kind = Kind::kThreshold;
    if (!(epsilon > 0 && epsilon < 1)) {
      VELMOR_THROW(std::invalid_argument, "The threshold greedy needs epsilon in (0, 1), not %g.",
                   epsilon);
    }
  } else {
    VELMOR_THROW(std::invalid_argument,
                 "Unknown algorithm '%s': use \"standard\", \"accelerated\", \"stochastic\" or "
                 "\"threshold\".",
                 algorithm.c_str());
  }
  if (threads < 0) {
    VELMOR_THROW(std::invalid_argument, "threads must be >= 0, not %d.", threads);
  }
  choice.epsilon = epsilon;
  choice.threads = threads;
  return choice;
}

// A vector handed to numpy without a copy: the array owns it.
template <typename T>
py::array_t<T> OwnedArray(std::vector<T>&& values) {
  auto* held = new std::vector<T>(std::move(values));
  py::capsule owner(held, [](void* p) { delete static_cast<std::vector<T>*>(p); });
  return py::array_t<T>(static_cast<py::ssize_t>(held->size()), held->data(), owner);
}

struct Result {
  py::array order;
  py::array gains;
  double value = 0.0;
  long evaluations = 0;
  double objective_seconds = 0.0;
  double maximize_seconds = 0.0;
  std::string algorithm;
};

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

Result MaximizeFunction(const Function& f, const std::optional<Constraint>& constraint,
                        const std::optional<int>& k, const std::string& algorithm, double epsilon,
                        int threads, int random_state, const py::object& inclusion,
                        const py::object& restriction, const py::object& progress) {
  const int n = f.spec.GroundSetSize();
  MaximizeOptions options;
  options.choice = Choice(algorithm, epsilon, threads);
  // The algorithm's seed is the first draw of a Mersenne twister seeded with
  // random_state, as quillo derives it from -seed: the same state gives the
  // same summary in both.
  std::mt19937 engine(static_cast<std::mt19937::result_type>(random_state));
  options.seed = static_cast<int>(engine() >> 1);
  options.inclusion = SetArgument(inclusion, n, "inclusion");
  options.restriction = SetArgument(restriction, n, "restriction");
  if (constraint.has_value() == k.has_value()) {
    VELMOR_THROW(std::invalid_argument, "Give either k or a constraint (not both, not neither).");
  }
  std::shared_ptr<const DownClosedSetConstraint> limits;
  if (k.has_value()) {
    if (*k < 0 || *k > n) {
      VELMOR_THROW(std::invalid_argument, "k must be in [0, %d] (the ground set's size), not %d.",
                   n, *k);
    }
    limits = std::make_shared<CardinalitySetConstraint>(n, *k);
  } else {
    limits = constraint->constraint;
  }
  auto signals = std::make_shared<RunSignals>();
  MaximizeResult found;
  Result result;
  const auto start = std::chrono::steady_clock::now();
  RunWatched(
      [&] {
        const SummaryObjective& objective = f.Objective();
        result.objective_seconds = SecondsSince(start);
        const auto maximize_start = std::chrono::steady_clock::now();
        found = Maximize(objective.Function(), *limits, options, signals);
        result.maximize_seconds = SecondsSince(maximize_start);
      },
      *signals, progress);
  result.value = found.value;
  result.evaluations = signals->evaluations.load();
  result.algorithm = options.choice.Description();
  std::vector<std::int32_t> order(found.order.begin(), found.order.end());
  result.order = OwnedArray(std::move(order));
  if (f.spec.InDouble()) {
    result.gains = OwnedArray(std::move(found.gains));
  } else {
    result.gains = OwnedArray(std::vector<float>(found.gains.begin(), found.gains.end()));
  }
  return result;
}

std::optional<UnorderedHashSet> OptionalSet(const py::object& elements, const Function& f,
                                            const char* name) {
  return SetArgument(elements, f.spec.GroundSetSize(), name);
}

UnorderedHashSet RequiredSet(const py::object& elements, const Function& f, const char* name) {
  if (elements.is_none()) VELMOR_THROW(std::invalid_argument, "%s must be given.", name);
  return *OptionalSet(elements, f, name);
}

}  // namespace
}  // namespace velmor::python

PYBIND11_MODULE(_velmor, m) {
  using namespace velmor;
  using namespace velmor::python;
  m.doc() =
      "Submodular summarization: the velmor engine's set functions, constraints and greedy "
      "maximizers.";

  error_root = NewException(m, "Error", PyExc_RuntimeError,
                            "An engine failure that is neither an argument error nor bad data.");
  input_data_error = NewException(m, "InputDataError", PyExc_ValueError,
                                  "The data cannot be used: NaN or infinite values, a matrix "
                                  "that cannot be normalized (all zero), and the like.");
  parameter_data_error = NewException(
      m, "InputAndOrParameterDataError", input_data_error,
      "The data together with the parameters gave an invalid result (a non-finite value).");
  py::register_exception_translator(&TranslateExceptions);
  // The algorithms log through the library's named loggers; the module reports
  // through its results and exceptions, so nothing reaches the console.
  logging::SetUpLogging("warn", "off", false, true, nullptr, nullptr);

  py::class_<Function>(m, "Function",
                       "A set function over the ground set {0, ..., n-1}. Made by "
                       "FacilityLocation, SparseFacilityLocation, Dispersion, Modular, Mixture "
                       "and the conditioning functions; its matrices are shared with the arrays "
                       "it was made from.")
      .def_property_readonly(
          "n", [](const Function& f) { return f.spec.GroundSetSize(); },
          "The size n of the ground set.")
      .def_property_readonly(
          "dtype",
          [](const Function& f) {
            return f.spec.InDouble() ? py::dtype::of<double>() : py::dtype::of<float>();
          },
          "The element type of the function's matrices (float32 or float64).")
      .def(
          "evaluate",
          [](const Function& f, const py::object& elements) {
            const UnorderedHashSet set = RequiredSet(elements, f, "elements");
            py::gil_scoped_release unlocked;
            return f.Objective().Function().Evaluate(set);
          },
          py::arg("elements"),
          "f(A) for the set A of the given elements (the function as normalized).")
      .def(
          "gain",
          [](const Function& f, int v, const py::object& elements) {
            const UnorderedHashSet set = RequiredSet(elements, f, "elements");
            if (v < 0 || v >= f.spec.GroundSetSize()) {
              VELMOR_THROW(std::invalid_argument, "Element %d is outside [0, %d).", v,
                           f.spec.GroundSetSize());
            }
            py::gil_scoped_release unlocked;
            return f.Objective().Function().Gain(v, set);
          },
          py::arg("v"), py::arg("elements"), "f(A + v) - f(A); 0 when v is in A.")
      .def("__repr__", [](const Function& f) {
        py::gil_scoped_release unlocked;
        return "<velmor.Function " + f.Objective().Function().Description() + ">";
      });

  m.def(
      "FacilityLocation",
      [](const py::object& similarity, double softness, bool normalize) {
        return MatrixFunction(FunctionKind::kFacilityLocation, DenseRows(similarity, "similarity"),
                              softness, normalize);
      },
      py::arg("similarity"), py::arg("softness") = 0.0, py::arg("normalize") = true,
      "Facility location over an n x k similarity matrix whose row v holds item v's similarity "
      "to k landmarks (k = n for a square similarity): f(A) = sum_i max_{a in A} S(a, i).\n\n"
      "A C-contiguous float32 or float64 array (or np.memmap of a .npy file) is read in place "
      "and kept alive by the function; any other array is copied once, with a UserWarning.\n"
      "softness > 0 gives soft facility location (a log-sum-exp of the similarities); "
      "normalize scales f so that f(V) = 1.");
  m.def(
      "FacilityLocationFromFeatures",
      [](const py::object& features, const std::string& metric, const py::object& gamma,
         int threads, double softness, bool normalize) {
        const auto kind = MetricKind(metric);
        return MatrixFunction(FunctionKind::kFacilityLocation,
                              DenseSimilarity(features, kind, Gamma(metric, gamma), threads),
                              softness, normalize);
      },
      py::arg("features"), py::arg("metric") = "rbf", py::arg("gamma") = py::none(),
      py::arg("threads") = 0, py::arg("softness") = 0.0, py::arg("normalize") = true,
      "Facility location over the n x n similarity of the rows of an n x d feature array, built "
      "by the engine on `threads` threads (0: all cores; the result does not depend on it).\n"
      "metric: \"rbf\" (exp(-gamma |x-y|^2), gamma None: 1 / the median squared distance), "
      "\"cosine\", \"dot\" or \"euclidean\" (the largest distance minus |x-y|).");
  m.def(
      "_sparse_facility_location",
      [](const py::object& data, const py::object& indices, const py::object& indptr, long rows,
         long cols, double softness, bool normalize, bool dispersion) {
        return MatrixFunction(
            dispersion ? FunctionKind::kSparseDispersion : FunctionKind::kSparseFacilityLocation,
            SparseRows(data, indices, indptr, rows, cols, "matrix"), softness, normalize);
      },
      py::arg("data"), py::arg("indices"), py::arg("indptr"), py::arg("rows"), py::arg("cols"),
      py::arg("softness"), py::arg("normalize"), py::arg("dispersion"));
  m.def(
      "SparseFacilityLocationFromFeatures",
      [](const py::object& features, int n_neighbors, const std::string& metric,
         const py::object& gamma, int threads, double softness, bool normalize) {
        const auto kind = MetricKind(metric);
        return MatrixFunction(
            FunctionKind::kSparseFacilityLocation,
            NearestSimilarity(features, kind, Gamma(metric, gamma), threads, n_neighbors), softness,
            normalize);
      },
      py::arg("features"), py::arg("n_neighbors"), py::arg("metric") = "rbf",
      py::arg("gamma") = py::none(), py::arg("threads") = 0, py::arg("softness") = 0.0,
      py::arg("normalize") = true,
      "Sparse facility location over each row's n_neighbors largest similarities of the rows of "
      "a feature array (the n x n matrix is never held). Metrics as in "
      "FacilityLocationFromFeatures.");
  m.def(
      "Dispersion",
      [](const py::object& matrix, bool normalize) {
        return MatrixFunction(FunctionKind::kDispersion, DenseRows(matrix, "matrix"), 0.0,
                              normalize);
      },
      py::arg("matrix"), py::arg("normalize") = true,
      "Sum-sum dispersion f(A) = sum_{a, b in A} M(a, b) of a non-negative square matrix "
      "(supermodular; mix it with a submodular function). The matrix is copied into the "
      "function.");
  m.def(
      "Modular",
      [](const std::vector<double>& weights) {
        SummaryPlan::FunctionGroup group(FunctionKind::kCentrality, "", 1.0, false);
        if (weights.empty()) VELMOR_THROW(std::invalid_argument, "weights must not be empty.");
        group.centrality = weights;
        return Function(ObjectiveSpec(std::move(group)));
      },
      py::arg("weights"), "The modular function f(A) = sum_{a in A} weights[a].");
  m.def(
      "Mixture",
      [](const std::vector<const Function*>& functions, const py::object& weights) {
        std::vector<const ObjectiveSpec*> parts;
        for (const Function* f : functions) {
          if (f == nullptr) VELMOR_THROW(std::invalid_argument, "A mixture part is None.");
          parts.push_back(&f->spec);
        }
        std::vector<double> w(parts.size(), 1.0);
        if (!weights.is_none()) w = weights.cast<std::vector<double>>();
        return Function(ObjectiveSpec::Mixture(parts, w));
      },
      py::arg("functions"), py::arg("weights") = py::none(),
      "sum_i weights[i] * functions[i] (weights 1 when None), each part as it was made "
      "(normalized or not).");
  m.def(
      "ConditionalMutualInformation",
      [](const Function& f, const py::object& attraction, const py::object& neglect) {
        return Function(f.spec.Conditioned(RequiredSet(attraction, f, "attraction"),
                                           OptionalSet(neglect, f, "neglect"), std::nullopt));
      },
      py::arg("function"), py::arg("attraction"), py::arg("neglect") = py::none(),
      "I_f(X; A | N) of a facility-location function f: what X says about the attraction set A "
      "beyond the neglect set N.");
  m.def(
      "Contraction",
      [](const Function& f, const py::object& contraction) {
        return Function(f.spec.Conditioned(std::nullopt, std::nullopt,
                                           RequiredSet(contraction, f, "contraction")));
      },
      py::arg("function"), py::arg("contraction"),
      "f(X u C) - f(C) of a facility-location function f (applied after any conditioning).");

  py::class_<Constraint>(m, "Constraint", "A down-closed constraint on the chosen set.")
      .def_property_readonly(
          "size_limit", [](const Constraint& c) { return c.constraint->SizeLimit(); },
          "The largest size of a feasible set.")
      .def("__repr__", [](const Constraint& c) {
        return "<velmor.Constraint " + c.constraint->Description() + ">";
      });
  m.def(
      "Cardinality",
      [](int n, int k) { return Constraint{std::make_shared<CardinalitySetConstraint>(n, k)}; },
      py::arg("n"), py::arg("k"), "At most k of the n elements.");
  m.def("PartitionMatroid", &PartitionMatroid, py::arg("labels"), py::arg("limits"),
        "At most limits[b] elements of label b, labels[v] in [0, len(limits)) giving element "
        "v's label.");
  m.def("IntersectionOfMatroids", &IntersectionOfMatroids, py::arg("matroids"),
        "Feasible when feasible in every one of the given partition matroids.");

  py::class_<Result>(m, "Result", "What maximize found.")
      .def_readonly("order", &Result::order,
                    "The chosen elements in the order of choice (int32), inclusion left out.")
      .def_readonly("gains", &Result::gains,
                    "Each chosen element's gain f(v | elements before it), in the function's "
                    "element type.")
      .def_readonly("value", &Result::value, "f(inclusion + order).")
      .def_readonly("evaluations", &Result::evaluations, "Marginal gains computed by the run.")
      .def_readonly("algorithm", &Result::algorithm, "The algorithm as run.")
      .def_property_readonly(
          "timings",
          [](const Result& r) {
            py::dict timings;
            timings["objective"] = r.objective_seconds;
            timings["maximize"] = r.maximize_seconds;
            return timings;
          },
          "Wall-clock seconds: building the objective (normalization, checks; 0 when built "
          "before) and the maximization.")
      .def("__repr__", [](const Result& r) {
        return "<velmor.Result " + std::to_string(r.order.size()) +
               " elements, value=" + std::to_string(r.value) + ">";
      });

  m.def("maximize", &MaximizeFunction, py::arg("function"), py::arg("constraint") = py::none(),
        py::kw_only(), py::arg("k") = py::none(), py::arg("algorithm") = "standard",
        py::arg("epsilon") = 0.1, py::arg("threads") = 0, py::arg("random_state") = 12345,
        py::arg("inclusion") = py::none(), py::arg("restriction") = py::none(),
        py::arg("progress") = py::none(),
        "Greedy maximization of `function` under `constraint` (or at most k elements).\n\n"
        "algorithm: \"standard\" (runs to the limit whatever the gains), \"accelerated\", "
        "\"stochastic\" (epsilon: sampling, in [0, 1)) or \"threshold\" (epsilon: rate, in "
        "(0, 1)); these three stop at the first negative gain. threads > 0 runs the algorithm "
        "on that many blocks of the candidates (multi-threaded greedy). random_state seeds the "
        "random draws (as quillo's -seed does). inclusion: elements the solution starts with; "
        "restriction: the only "
        "candidates. progress: called with the number of elements chosen so far, every 50 ms.\n"
        "The GIL is released while it runs; Ctrl-C stops it with KeyboardInterrupt.");
}
