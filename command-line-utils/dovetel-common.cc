#include "command-line-utils/dovetel-common.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <spdlog/spdlog.h>
#include <sys/resource.h>

#include <Eigen/Core>
#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <numeric>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "algorithms/greedy_max.h"
#include "algorithms/random_min_max.h"
#include "command-line-utils/GreedyAlgorithmChoice.h"
#include "command-line-utils/SetSpecification.h"
#include "command-line-utils/common-command-line-routines.h"
#include "command-line-utils/velmor_arguments.h"
#include "constraints/CardinalitySetConstraint.h"
#include "constraints/IntersectionOfMatroidsSetConstraint.h"
#include "functions/CombinatorialConditionalMutualInformationWrapperSetFunction.h"
#include "functions/ContractionWrapperSetFunction.h"
#include "functions/FacilityLocationFunction.h"
#include "functions/MixtureSetFunction.h"
#include "functions/ModularFunction.h"
#include "functions/SoftFacilityLocationFunction.h"
#include "functions/SoftSparseFacilityLocationFunction.h"
#include "functions/SparseFacilityLocationFunction.h"
#include "functions/SparseSumSumDispersionFunction.h"
#include "functions/SumSumDispersionFunction.h"
#include "io/DenseMatrixIO.h"
#include "matrixvector/MatrixTransformations.h"
#include "sets/FixedEmptySet.h"
#include "sets/UnorderedHashSet.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"
#include "utils/logging.h"
#include "utils/other_string_utils.h"

namespace velmor {
namespace {

using exception::CommandLineError;
using exception::InputAndOrParameterDataError;
using exception::InputDataError;
using matrixio::DenseMatrix;
using matrixio::SparseMatrix;

// Dense matrices are held in single precision: half the memory traffic of the
// gain loops, and ample for similarities.
using Real = float;

constexpr int32_t kSummarySizeNotGiven = std::numeric_limits<int32_t>::max();

// Everything the objective assembly produces: owned components with their
// weights and the names they are mixed in under.
struct Objective {
  std::vector<std::unique_ptr<SetFunction>> components;
  std::vector<double> weights;
  std::vector<std::string> names;
  int n = -1;

  void Add(std::unique_ptr<SetFunction> component, double weight, std::string name) {
    if (n < 0) n = component->GroundSetSize();
    components.push_back(std::move(component));
    weights.push_back(weight);
    names.push_back(std::move(name));
  }
};

// The options of one facility-location group (FL or FL2).
struct FacilityLocationGroup {
  const char* tag;
  const char* file_name;
  int rows, cols;
  double responsibility;
  const char* transformation;
  double softness;
  bool no_normalize;
  double centrality_responsibility;
  const char* centrality_spec;
  const char* centrality_transformation;
  const char* centrality_ccf_spec;
  bool one_hot_expand;
  int asym_iterations;
  const char* set_contraction;
  const char* set_attraction;
  const char* set_neglect;
  const char* save_matrix;
  const char* save_centrality;
};

std::string Text(const char* text) { return text != nullptr ? text : ""; }

void CheckNonNegativeWeight(const char* tag, double weight) {
  if (!(weight >= 0.0)) {
    throw CommandLineError(
        exception::MakeCommandMessage("%s weight = '%g', but must be non-negative", tag, weight));
  }
}

// ----- One-hot expansion and centrality -------------------------------------

// Column j of an integer-coded matrix with codes 0..m_j becomes m_j + 1 0/1
// columns, the one of the code set.
DenseMatrix<Real> ExpandOneHot(const DenseMatrix<Real>& codes, const char* tag) {
  std::vector<int> widths(static_cast<std::size_t>(codes.cols()), 0);
  for (Eigen::Index j = 0; j < codes.cols(); ++j) {
    for (Eigen::Index i = 0; i < codes.rows(); ++i) {
      const Real c = codes(i, j);
      if (!(c >= 0) || c != std::floor(c) || c > (1 << 20)) {
        throw CommandLineError(exception::MakeCommandMessage(
            "%s one-hot expansion needs non-negative integer codes, but entry (%d,%d) is %g.", tag,
            static_cast<int>(i), static_cast<int>(j), static_cast<double>(c)));
      }
      widths[static_cast<std::size_t>(j)] =
          std::max(widths[static_cast<std::size_t>(j)], static_cast<int>(c) + 1);
    }
  }
  const Eigen::Index total = std::accumulate(widths.begin(), widths.end(), Eigen::Index{0});
  DenseMatrix<Real> expanded = DenseMatrix<Real>::Zero(codes.rows(), total);
  Eigen::Index offset = 0;
  for (Eigen::Index j = 0; j < codes.cols(); ++j) {
    for (Eigen::Index i = 0; i < codes.rows(); ++i) {
      expanded(i, offset + static_cast<Eigen::Index>(codes(i, j))) = 1;
    }
    offset += widths[static_cast<std::size_t>(j)];
  }
  return expanded;
}

// The group's centrality vector: one value per element (matrix row).
std::vector<double> ComputeCentrality(const DenseMatrix<Real>& matrix,
                                      const FacilityLocationGroup& g) {
  static const char* const kCentralities[] = {"ROWMIN", "ROWMAX", "ROWSUM", "ROWMEAN"};
  const std::string centrality_text = Text(g.centrality_spec);
  const std::string name =
      YankOutAlphaNumericTokenPrefixFromStringStartingAtOffset(centrality_text, 0);
  int which = -1;
  for (int i = 0; i < 4; ++i) {
    if (name == kCentralities[i] && centrality_text == name + "()") which = i;
  }
  if (which < 0) {
    throw CommandLineError(exception::MakeCommandMessage(
        "%s centrality '%s' is not supported; use ROWMIN(), ROWMAX(), ROWSUM() or ROWMEAN().",
        g.tag, centrality_text.c_str()));
  }
  if (Text(g.centrality_ccf_spec) != "LINEAR()") {
    throw CommandLineError(
        exception::MakeCommandMessage("%s centrality curve '%s' is not supported; use LINEAR().",
                                      g.tag, Text(g.centrality_ccf_spec).c_str()));
  }
  DenseMatrix<double> centrality(matrix.rows(), 1);
  for (Eigen::Index i = 0; i < matrix.rows(); ++i) {
    const auto row = matrix.row(i).cast<double>();
    centrality(i, 0) = which == 0   ? row.minCoeff()
                       : which == 1 ? row.maxCoeff()
                       : which == 2 ? row.sum()
                                    : row.mean();
  }
  if (g.centrality_transformation != nullptr && g.centrality_transformation[0] != '\0') {
    try {
      ApplyMatrixTransformation(g.centrality_transformation, centrality);
    } catch (...) {
      VELMOR_THROW_NESTED(
          CommandLineError, "Problems with matrix transformation string '%s' for %s function.",
          g.centrality_transformation, (std::string(g.tag) + " centrality").c_str());
    }
    if (centrality.cols() != 1 || centrality.rows() != matrix.rows()) {
      throw CommandLineError(exception::MakeCommandMessage(
          "%s centrality transformation must keep a vector of length %d.", g.tag,
          static_cast<int>(matrix.rows())));
    }
  }
  if (g.save_centrality != nullptr)
    matrixio::WriteMatrixToFile(centrality, g.save_centrality, false);
  return std::vector<double>(centrality.data(), centrality.data() + centrality.rows());
}

// ----- Set strings and wrappers ---------------------------------------------

UnorderedHashSet SetOption(const char* text, int n, std::mt19937& engine, const char* option) {
  return ParseSetSpecification(Text(text), n, engine, option);
}

// Wraps `f` in the CMI wrapper (attraction given) and/or the contraction
// wrapper (contraction given), in that order.
std::unique_ptr<SubmodularFunction> WrapForSets(std::unique_ptr<SubmodularFunction> f,
                                                const char* tag, const char* contraction,
                                                const char* attraction, const char* neglect,
                                                const char* option_prefix, std::mt19937& engine) {
  const int n = f->GroundSetSize();
  if (neglect != nullptr && attraction == nullptr) {
    throw CommandLineError(exception::MakeCommandMessage(
        "%s given a neglect set string for R but not given any attraction set string for G.", tag));
  }
  if (attraction != nullptr) {
    const UnorderedHashSet a =
        SetOption(attraction, n, engine, (std::string(option_prefix) + "-set-attraction").c_str());
    const UnorderedHashSet b =
        SetOption(neglect, n, engine, (std::string(option_prefix) + "-set-neglect").c_str());
    f = std::make_unique<
        CombinatorialConditionalMutualInformationWrapperSetFunction<SubmodularFunction>>(
        std::move(f), a, b);
  }
  if (contraction != nullptr) {
    const UnorderedHashSet c = SetOption(contraction, n, engine,
                                         (std::string(option_prefix) + "-set-contraction").c_str());
    f = std::make_unique<ContractionWrapperSetFunction<SubmodularFunction>>(std::move(f), c);
  }
  return f;
}

// ----- Function groups --------------------------------------------------------

void AddFacilityLocationGroup(const FacilityLocationGroup& g, const char* option_prefix,
                              Objective& objective, std::mt19937& engine, spdlog::logger& ctrl) {
  if (g.file_name == nullptr) return;
  CheckNonNegativeWeight(g.tag, g.responsibility);
  CheckNonNegativeWeight((std::string(g.tag) + " centrality").c_str(), g.centrality_responsibility);
  if (g.asym_iterations > 0) {
    throw CommandLineError(exception::MakeCommandMessage(
        "%s asymmetric iterations (%d) are not supported; use 0.", g.tag, g.asym_iterations));
  }
  // An untransformed .npy file of our element type in C order is used where it
  // lies, mapped into memory: the plain FL keeps the mapping as its storage
  // (no read, no copy); the soft FL copies it once into its own element-major
  // matrix (no transposing read). Saving the matrix and centrality need the
  // loaded n x k matrix, so they take the reading path.
  std::optional<matrixio::MappedNumpyMatrix<Real>> mapped;
  if (!g.one_hot_expand && Text(g.transformation).empty() && g.save_matrix == nullptr &&
      !(g.centrality_responsibility > 0)) {
    mapped = MapNumpyMatrixInPlace<Real>(g.tag, g.file_name);
  }
  DenseMatrix<Real> matrix;
  if (mapped) {
    ctrl.debug("{} matrix file '{}' mapped into memory.", g.tag, g.file_name);
  } else if (g.one_hot_expand) {
    DenseMatrix<Real> codes = LoadAndTransformMatrix<Real>(g.tag, g.file_name, g.rows, g.cols, "");
    matrix = ExpandOneHot(codes, g.tag);
    try {
      ApplyMatrixTransformation(Text(g.transformation), matrix);
    } catch (...) {
      VELMOR_THROW_NESTED(CommandLineError,
                          "Problems with matrix transformation string '%s' for %s function.",
                          g.transformation, g.tag);
    }
  } else {
    matrix = LoadAndTransformMatrix<Real>(g.tag, g.file_name, g.rows, g.cols, g.transformation);
  }
  if (g.save_matrix != nullptr) matrixio::WriteMatrixToFile(matrix, g.save_matrix, false);

  std::vector<double> centrality;
  if (g.centrality_responsibility > 0) centrality = ComputeCentrality(matrix, g);

  std::unique_ptr<SubmodularFunction> f;
  try {
    const int64_t n = mapped ? mapped->rows() : matrix.rows();
    const int64_t k = mapped ? mapped->cols() : matrix.cols();
    if (g.softness > 0) {
      using Soft = SoftFacilityLocationFunction<Real>;
      ctrl.info("Creating a Soft Facility Location Function with a {}x{} matrix.", n, k);
      std::unique_ptr<Soft> soft;
      if (mapped) {
        DenseMatrix<Real> landmarks_by_elements = mapped->ElementMajor();
        mapped.reset();
        soft = std::make_unique<Soft>(Soft::ElementMajor{}, std::move(landmarks_by_elements),
                                      g.softness);
      } else {
        soft = std::make_unique<Soft>(matrix, g.softness);
      }
      soft->ComputeNormalizationConstant(g.no_normalize);
      f = std::move(soft);
    } else {
      using Hard = FacilityLocationFunction<Real>;
      ctrl.info("Creating a Facility Location Function with a {}x{} matrix.", n, k);
      auto hard =
          mapped ? std::make_unique<Hard>(Hard::ElementMajor{}, std::move(*mapped).Share(), n, k)
                 : std::make_unique<Hard>(matrix);
      hard->ComputeNormalizationConstant(g.no_normalize);
      f = std::move(hard);
    }
  } catch (...) {
    VELMOR_THROW_NESTED(std::runtime_error, "Problems opening an %s function.", g.tag);
  }
  matrix.resize(0, 0);
  f = WrapForSets(std::move(f), g.tag, g.set_contraction, g.set_attraction, g.set_neglect,
                  option_prefix, engine);
  const std::string name = std::string(g.tag) + " function";
  ctrl.info("Mixing in {}, relative responsibility {:g}.", name, g.responsibility);
  objective.Add(std::move(f), g.responsibility, name);

  if (!centrality.empty()) {
    if (std::string(g.tag) == "FL") {
      ctrl.info(
          "Mixing in length {} FL-matrix based centrality function, relative responsibility {:g}.",
          centrality.size(), g.centrality_responsibility);
    } else {
      ctrl.info(
          "Mixing in length {} FL2-matrix based centrality function, relative responsibility {:g}.",
          centrality.size(), g.centrality_responsibility);
    }
    objective.Add(std::make_unique<ModularFunction<double>>(std::move(centrality)),
                  g.centrality_responsibility, std::string(g.tag) + " centrality function");
  }
}

void AddSparseFacilityLocationGroup(Objective& objective, std::mt19937& engine,
                                    spdlog::logger& ctrl) {
  using namespace options;
  if (spflfilename == nullptr) return;
  if (!(spflresponsibility >= 0)) {
    throw CommandLineError(
        "Sparse facility location function needs non-negative responsibility value.");
  }
  SparseMatrix<Real> matrix = LoadAndTransformSparseMatrix<Real>("SPFL", spflfilename, spflrows,
                                                                 spflcols, spfltransformation);
  ctrl.info("{}Creating a sparse FL function with a {}x{} matrix.\n", "", matrix.rows(),
            matrix.cols());
  typename SparseFacilityLocationFunction<Real>::SparseMatrix rows_major = matrix;
  matrix.resize(0, 0);
  matrix.data().squeeze();
  std::unique_ptr<SubmodularFunction> f;
  try {
    if (spflsoftness > 0) {
      f = std::make_unique<SoftSparseFacilityLocationFunction<Real>>(std::move(rows_major),
                                                                     spflsoftness, spflnonormalize);
    } else {
      f = std::make_unique<SparseFacilityLocationFunction<Real>>(std::move(rows_major),
                                                                 spflnonormalize);
    }
  } catch (...) {
    VELMOR_THROW_NESTED(std::runtime_error, "Problems opening an %s function.", "SPFL");
  }
  f = WrapForSets(std::move(f), "SPFL", spfl_set_contraction, spfl_set_attraction, spfl_set_neglect,
                  "spfl", engine);
  ctrl.info("Mixing in {}, relative responsibility {:g}.", "Sparse FL function",
            spflresponsibility);
  objective.Add(std::move(f), spflresponsibility, "Sparse FL function");
}

void AddDenseDispersionGroup(const char* tag, const char* file_name, int rows, int cols,
                             const char* transformation, double responsibility, bool no_normalize,
                             Objective& objective, spdlog::logger& ctrl) {
  if (file_name == nullptr) return;
  if (!(responsibility >= 0)) {
    throw CommandLineError("SumSumDispersion function needs non-negative responsibility value.");
  }
  DenseMatrix<Real> matrix =
      LoadAndTransformMatrix<Real>(tag, file_name, rows, cols, transformation);
  ctrl.info("{}Creating a SumSumDisp function with a {}x{} matrix.\n", "", matrix.rows(),
            matrix.cols());
  const auto rows_count = matrix.rows(), cols_count = matrix.cols();
  std::unique_ptr<SetFunction> f;
  try {
    auto dispersion = std::make_unique<SumSumDispersionFunction<Real>>(matrix);
    dispersion->ComputeNormalizationConstant(no_normalize);
    f = std::move(dispersion);
  } catch (...) {
    VELMOR_THROW_NESTED(std::runtime_error, "Problems opening SumSumDisp function.");
  }
  ctrl.info(fmt::runtime(std::string("Mixing in a dense {}x{} matrix ") + tag +
                         " function, relative responsibility {:g}"),
            rows_count, cols_count, responsibility);
  objective.Add(std::move(f), responsibility, std::string(tag) + " function");
}

void AddSparseDispersionGroup(const char* tag, const char* file_name, const char* transformation,
                              double responsibility, bool no_normalize, Objective& objective,
                              spdlog::logger& ctrl) {
  if (file_name == nullptr) return;
  if (!(responsibility >= 0)) {
    throw CommandLineError(std::string(tag) + " needs non-negative responsibility value.");
  }
  SparseMatrix<Real> matrix =
      LoadAndTransformSparseMatrix<Real>(tag, file_name, -1, -1, transformation);
  ctrl.info(fmt::runtime(std::string("{}Creating a ") + tag + " function with a {}x{} matrix.\n"),
            "", matrix.rows(), matrix.cols());
  const auto rows_count = matrix.rows(), cols_count = matrix.cols();
  std::unique_ptr<SetFunction> f;
  try {
    typename SparseSumSumDispersionFunction<Real>::SparseMatrix rows_major = matrix;
    matrix.resize(0, 0);
    matrix.data().squeeze();
    auto dispersion = std::make_unique<SparseSumSumDispersionFunction<Real>>(std::move(rows_major));
    dispersion->ComputeNormalizationConstant(no_normalize);
    f = std::move(dispersion);
  } catch (...) {
    VELMOR_THROW_NESTED(std::runtime_error, "Problems opening %s function.", tag);
  }
  ctrl.info("Mixing in a sparse {}x{} matrix SM function, relative responsibility {:g}.",
            rows_count, cols_count, responsibility);
  objective.Add(std::move(f), responsibility, std::string(tag) + " function");
}

Objective BuildObjective(std::mt19937& engine, spdlog::logger& ctrl) {
  using namespace options;
  Objective objective;
  const FacilityLocationGroup fl{"FL",
                                 flfilename,
                                 flrows,
                                 flcols,
                                 flresponsibility,
                                 fltransformation,
                                 flsoftness,
                                 flnonormalize,
                                 flcentralityresponsibility,
                                 flcentralityspec,
                                 flcentralitytransformation,
                                 flcentralityccfspec,
                                 flohexpand,
                                 flasymiterations,
                                 fl_set_contraction,
                                 fl_set_attraction,
                                 fl_set_neglect,
                                 flsavefinaltransformedmatrix,
                                 flsavefinalcentralityvector};
  const FacilityLocationGroup fl2{"FL2",
                                  fl2filename,
                                  fl2rows,
                                  fl2cols,
                                  fl2responsibility,
                                  fl2transformation,
                                  fl2softness,
                                  fl2nonormalize,
                                  fl2centralityresponsibility,
                                  fl2centralityspec,
                                  fl2centralitytransformation,
                                  fl2centralityccfspec,
                                  fl2ohexpand,
                                  fl2asymiterations,
                                  fl2_set_contraction,
                                  fl2_set_attraction,
                                  fl2_set_neglect,
                                  fl2savefinaltransformedmatrix,
                                  fl2savefinalcentralityvector};
  AddFacilityLocationGroup(fl, "fl", objective, engine, ctrl);
  AddFacilityLocationGroup(fl2, "fl2", objective, engine, ctrl);
  AddSparseFacilityLocationGroup(objective, engine, ctrl);
  AddDenseDispersionGroup("SSD", ssdfilename, ssdrows, ssdcols, ssdtransformation,
                          ssdresponsibility, ssdnonormalize, objective, ctrl);
  AddDenseDispersionGroup("SSD2", ssd2filename, ssd2rows, ssd2cols, ssd2transformation,
                          ssd2responsibility, ssd2nonormalize, objective, ctrl);
  AddSparseDispersionGroup("SPSSD", spssdfilename, spssdtransformation, spssdresponsibility,
                           spssdnonormalize, objective, ctrl);
  AddSparseDispersionGroup("SPSSD2", spssd2filename, spssd2transformation, spssd2responsibility,
                           spssd2nonormalize, objective, ctrl);
  if (objective.components.empty()) {
    throw CommandLineError("Need to specify at least one function on command line.");
  }
  const double total = std::accumulate(objective.weights.begin(), objective.weights.end(), 0.0);
  if (!(total > 0)) {
    throw CommandLineError(exception::MakeCommandMessage(
        "Error: a non-positive sum of responsibilities (%g) is invalid.", total));
  }
  return objective;
}

// ----- Size, timing, reports --------------------------------------------------

int SummarySize(int n) {
  const int32_t k = options::sumsize;
  if (k == kSummarySizeNotGiven) {
    if (options::imjson != nullptr) return n;  // the matroids limit the size
    throw CommandLineError(
        "Must give valid summary size k, either non-negative k>=0, or negative k<0 yielding actual "
        "size=(|V|+1+k).");
  }
  if (k >= 0) {
    if (k > n) {
      throw CommandLineError(
          "Must give valid summary size k, either non-negative k>=0, or negative k<0 yielding "
          "actual "
          "size=(|V|+1+k).");
    }
    return k;
  }
  const long long size = static_cast<long long>(n) + 1 + k;
  if (size < 0) {
    throw CommandLineError(exception::MakeCommandMessage(
        "Must give valid summary size k, either non-negative k>=0, or negative k<0 yielding actual "
        "non-negative size, but got (|V|+1+k)=%d.",
        static_cast<int>(size)));
  }
  return static_cast<int>(size);
}

struct Clock {
  double user = 0, system = 0, wall = 0;
  static Clock Now() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    Clock c;
    c.user = static_cast<double>(usage.ru_utime.tv_sec) +
             1e-6 * static_cast<double>(usage.ru_utime.tv_usec);
    c.system = static_cast<double>(usage.ru_stime.tv_sec) +
               1e-6 * static_cast<double>(usage.ru_stime.tv_usec);
    c.wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    return c;
  }
};

// Numbers in reports: integers as they are, reals with ten significant digits.
template <typename T>
std::string FormatNumber(T value) {
  if constexpr (std::is_integral_v<T>) {
    return fmt::format("{}", value);
  } else {
    return fmt::format("{:.10g}", value);
  }
}

template <typename T>
std::string VectorText(const std::vector<T>& values, const char* numpy_name) {
  std::string text;
  if (options::ctrl_lognpv) {
    text = std::string(numpy_name) + " = np.array([";
    for (std::size_t i = 0; i < values.size(); ++i) {
      text += FormatNumber(values[i]);
      if (i + 1 < values.size()) text += ", ";
    }
    return text + "])";
  }
  for (const T& v : values) text += FormatNumber(v) + " ";
  return text;
}

std::string SetText(const std::vector<int>& elements) {
  std::vector<int> sorted = elements;
  std::sort(sorted.begin(), sorted.end());
  return fmt::format("{{{}}}", fmt::join(sorted, ", "));
}

// Conditional curvature of each chosen element: 1 - f(s | S - s) / g, where g
// is the gain s had when the greedy chose it.
std::vector<double> ConditionalCurvature(const SetFunction& f, const UnorderedHashSet& solution,
                                         const std::vector<int>& order,
                                         const std::vector<float>& gains, spdlog::logger& ctrl) {
  std::vector<double> curvature(order.size(), 0.0);
  auto context = f.MakeShrinkingContext(solution);
  for (std::size_t i = 0; i < order.size(); ++i) {
    const double gain = gains[i];
    if (gain == 0.0) {
      ctrl.info("Evaluation g({}|S)=0, with {} \\in Summary. Assuming zero curvature.", order[i],
                order[i]);
      continue;
    }
    curvature[i] = 1.0 - context->SubsetLoss(order[i]) / gain;
  }
  return curvature;
}

void LogDetailReport(const SetFunction& f, const std::vector<int>& order,
                     const std::vector<double>& curvature, double value, spdlog::logger& ctrl) {
  double bound = 0.0;
  for (int v : order) bound += f.Evaluate(v);
  if (!curvature.empty()) {
    const auto [low, high] = std::minmax_element(curvature.begin(), curvature.end());
    const double mean = std::accumulate(curvature.begin(), curvature.end(), 0.0) /
                        static_cast<double>(curvature.size());
    ctrl.info("Conditional curvature of the summary: min = {:.10g}, mean = {:.10g}, max = {:.10g}.",
              *low, mean, *high);
  }
  ctrl.info(
      "Modular Upper Bound on solution = {}, 0 <= Approximate Efficiency = f(Sol)/UBound = {} <= "
      "1.0",
      bound, bound > 0 ? value / bound : 1.0);
}

// Each component's share of the summary's value (under a contraction C,
// w_i (f_i(S u C) - f_i(C))); with level > 1 also each component's gain at
// every step of the order. The components are read where the mixture holds them.
void LogBalanceReport(const MixtureSetFunction& mixture, const std::vector<std::string>& names,
                      const UnorderedHashSet* contraction, const std::vector<int>& order,
                      spdlog::logger& ctrl) {
  const int n = mixture.GroundSetSize();
  const std::vector<double>& weights = mixture.ComponentWeights();
  double total = 0.0;
  std::vector<double> values;
  UnorderedHashSet solution(n);
  for (int v : order) solution.insert(v);
  for (int i = 0; i < mixture.NumberOfComponents(); ++i) {
    const SetFunction& component = mixture.Component(i);
    const double weight = weights[static_cast<std::size_t>(i)];
    if (contraction == nullptr) {
      values.push_back(weight * component.Evaluate(solution));
    } else {
      UnorderedHashSet with_contraction = solution;
      with_contraction.insertSet(*contraction);
      values.push_back(weight *
                       (component.Evaluate(with_contraction) - component.Evaluate(*contraction)));
    }
    total += values.back();
  }
  for (int i = 0; i < mixture.NumberOfComponents(); ++i) {
    const std::size_t c = static_cast<std::size_t>(i);
    ctrl.info("Balance: {} (responsibility {:g}) contributes {:.10g} = {:.4g}% of f(Solution).",
              names[c], weights[c], values[c], total != 0 ? 100.0 * values[c] / total : 0.0);
    if (options::ctrl_logbalancereport > 1) {
      std::vector<double> step_gains;
      auto context = contraction != nullptr
                         ? mixture.Component(i).MakeGrowingContext(*contraction)
                         : mixture.Component(i).MakeGrowingContext(FixedEmptySet(n));
      for (int v : order) {
        step_gains.push_back(weights[c] * context->DisjointGain(v));
        context->AddNewElementToContext(v, true);
      }
      ctrl.info("Balance: {} gains: {}", names[c], VectorText(step_gains, "component_gains"));
    }
  }
}

void WriteVectorFile(const char* file_name, const DenseMatrix<double>& column) {
  try {
    matrixio::WriteDenseMatrixToFile(column, file_name, false);
  } catch (...) {
    VELMOR_THROW_NESTED(
        InputDataError, "%s",
        fmt::format("Can't open file '{}' for writing to output.", file_name).c_str());
  }
}

void WriteOutputFiles(const std::vector<int>& order, const std::vector<float>& gains) {
  if (options::outfilesummary != nullptr) {
    DenseMatrix<double> column(static_cast<Eigen::Index>(order.size()), 1);
    for (std::size_t i = 0; i < order.size(); ++i)
      column(static_cast<Eigen::Index>(i), 0) = order[i];
    WriteVectorFile(options::outfilesummary, column);
  }
  if (options::outfilegains != nullptr) {
    DenseMatrix<double> column(static_cast<Eigen::Index>(gains.size()), 1);
    for (std::size_t i = 0; i < gains.size(); ++i)
      column(static_cast<Eigen::Index>(i), 0) = gains[i];
    WriteVectorFile(options::outfilegains, column);
  }
  if (options::outasciiresultsfilename != nullptr) {
    std::ofstream out(options::outasciiresultsfilename);
    if (!out) {
      throw InputDataError(fmt::format("Can't open file '{}' for writing to output.",
                                       options::outasciiresultsfilename));
    }
    for (std::size_t i = 0; i < order.size(); ++i) out << (i ? "," : "") << order[i];
    out << '\n';
    for (std::size_t i = 0; i < gains.size(); ++i)
      out << (i ? "," : "") << fmt::format("{:.10g}", gains[i]);
    out << '\n';
  }
}

// ----- Summarization ------------------------------------------------------------

struct Summary {
  std::vector<int> order;
  std::vector<float> gains;
  UnorderedHashSet solution;
  double value = 0.0;
};

// The plain standard greedy never stops on the gain; a chosen algorithm runs
// through the library's selector.
Summary RunGreedy(const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
                  const Set& candidates, const Set& inclusion,
                  const GreedyAlgorithmChoice& choice = {}, int seed = 0) {
  Summary s;
  s.solution = UnorderedHashSet(f.GroundSetSize());
  if (!choice.IsPlainStandard()) {
    RunChosenGreedyAlgorithm(choice, seed, f, constraint, candidates, inclusion, &s.solution,
                             &s.order, &s.gains, &s.value);
    return s;
  }
  const FixedEmptySet conditioning(f.GroundSetSize());
  GreedyConstrainedMaximization(f, constraint, std::numeric_limits<int>::max(), candidates,
                                inclusion, conditioning, static_cast<GainPermit>(2), &s.solution,
                                &s.order, &s.gains, &s.value, nullptr);
  return s;
}

// Tries every p-subset of the candidates (in lexicographic order of the
// candidates' ascending list) as a starting set and keeps the best completion.
Summary RunPartialEnumeration(const SubmodularFunction& f,
                              const DownClosedSetConstraint& constraint,
                              const UnorderedHashSet& candidates, const UnorderedHashSet& inclusion,
                              int p, const GreedyAlgorithmChoice& choice, int seed,
                              spdlog::logger& ctrl) {
  std::vector<int> pool;
  candidates.ToVector(pool);
  pool.erase(std::remove_if(pool.begin(), pool.end(), [&](int v) { return inclusion.contains(v); }),
             pool.end());
  std::sort(pool.begin(), pool.end());
  const int m = static_cast<int>(pool.size());
  double combinations = 1.0;
  for (int i = 0; i < p; ++i) combinations = combinations * (m - i) / (i + 1);
  Summary best;
  bool found = false;
  std::vector<int> pick(static_cast<std::size_t>(p));
  std::iota(pick.begin(), pick.end(), 0);
  const int period = std::max(1, options::ctrl_logpartialenumperiod);
  long long count = 0;
  while (p <= m) {
    if (count % period == 0)
      ctrl.info("Working on partial enumeration set {} of {}", count, combinations);
    ++count;
    UnorderedHashSet start = inclusion;
    for (int i : pick) start.insert(pool[static_cast<std::size_t>(i)]);
    if (constraint.IsFeasible(start)) {
      Summary s = RunGreedy(f, constraint, candidates, start, choice, seed);
      if (!found || s.value > best.value) {
        best = std::move(s);
        found = true;
      }
    }
    int i = p - 1;
    while (i >= 0 && pick[static_cast<std::size_t>(i)] == m - p + i) --i;
    if (i < 0) break;
    ++pick[static_cast<std::size_t>(i)];
    for (int j = i + 1; j < p; ++j)
      pick[static_cast<std::size_t>(j)] = pick[static_cast<std::size_t>(j - 1)] + 1;
  }
  if (!found) {
    throw InputDataError(exception::MakeCommandMessage(
        "With current partial enumeration setting (%d), nothing was feasible.", p));
  }
  ctrl.info("Partial enumeration finished, reordering final best solution of size {}.",
            best.solution.size());
  UnorderedHashSet members(f.GroundSetSize());
  for (int v : best.solution) {
    if (!inclusion.contains(v)) members.insert(v);
  }
  return RunGreedy(f, constraint, members, inclusion);
}

}  // namespace

std::shared_ptr<spdlog::logger> ControlLogger() {
  return [](const char* name) {
    auto logger = spdlog::get(name);
    if (!logger) {
      throw std::runtime_error(
          VELMOR_SOURCE_MESSAGE(fmt::format("Unable to find {} logger.", name)));
    }
    return logger;
  }("ctrl");
}

int RunSummarization() {
  using namespace options;
  if (optm_logiterperiod >= 0) greedy_max::SetProgressLoggingPeriod(optm_logiterperiod);
  const auto ctrl_logger = ControlLogger();
  spdlog::logger& ctrl = *ctrl_logger;
  const GreedyAlgorithmChoice choice =
      ParseGreedyAlgorithmChoice(greedyalgorithm, "greedyalgorithm");

  if (numlibthreads == 0) {
    ctrl.info("Eigen library query to nbThreads() = {}.", Eigen::nbThreads());
  } else if (numlibthreads > 0) {
    ctrl.info("Setting Eigen library nbThreads() to {}.", numlibthreads);
    Eigen::setNbThreads(numlibthreads);
    ctrl.info("Now, Eigen library query to nbThreads() = {}.", Eigen::nbThreads());
  }
  std::mt19937 engine;
  if (rseed) {
    engine.seed(std::random_device("default")());
  } else {
    engine.seed(static_cast<std::mt19937::result_type>(seed));
  }
  if (ctrl_loglimits) {
    ctrl.info(
        "Program limits: ground set size and summary size at most {}, element indices are 32-bit.",
        std::numeric_limits<int32_t>::max());
  }

  // Objective.
  Objective objective = BuildObjective(engine, ctrl);
  const int n = objective.n;
  std::unique_ptr<SubmodularFunction> f =
      std::make_unique<MixtureSetFunction>(std::move(objective.components), objective.weights);
  const MixtureSetFunction& mixture = static_cast<const MixtureSetFunction&>(*f);

  // Set modifications: restriction, then deletion, then contraction.
  UnorderedHashSet candidates(n);
  if (set_restriction != nullptr) {
    candidates = SetOption(set_restriction, n, engine, "set-restriction");
  } else {
    candidates.MakeFull();
  }
  const UnorderedHashSet deletion = SetOption(set_deletion, n, engine, "set-deletion");
  const UnorderedHashSet inclusion = SetOption(set_inclusion, n, engine, "set-inclusion");
  const UnorderedHashSet contraction = SetOption(set_contraction, n, engine, "set-contraction");
  candidates.removeSet(deletion);
  if (set_contraction != nullptr) {
    candidates.removeSet(contraction);
    f = std::make_unique<ContractionWrapperSetFunction<SubmodularFunction>>(std::move(f),
                                                                            contraction);
  }

  // Size and constraint.
  const int k = SummarySize(n);
  std::unique_ptr<DownClosedSetConstraint> constraint;
  std::string description;
  if (imjson != nullptr) {
    try {
      constraint = IntersectionOfMatroidsSetConstraint::FromJSONFile(imjson);
    } catch (...) {
      VELMOR_THROW_NESTED(InputDataError, "Error reading through JSON file '%s'.", imjson);
    }
    description = "using a intersection of matroids constraint";
  } else {
    constraint = std::make_unique<CardinalitySetConstraint>(n, k);
    description = fmt::format("down to summary of size k={}", k);
  }
  ctrl.info(
      "Summarizing function with ground set of size |V|=n={}, relative ground set |R|={}, {}.", n,
      candidates.size(), description);
  if (candidates.size() == 0) {
    ctrl.info("Relative ground set size being zero means there is no work to do.");
    return 0;
  }

  // Random evaluations.
  if (randomevaluations > 0) {
    ctrl.info("Running {} random subsets of size {} ...", randomevaluations, k);
    UnorderedHashSet min_set(n), max_set(n);
    double min_value = 0, max_value = 0, average_value = 0;
    RandomMaximizationMinimization(randomevaluations,
                                   static_cast<std::uint64_t>(static_cast<uint32_t>(seed)), *f,
                                   *constraint, candidates, inclusion, FixedEmptySet(n), &min_set,
                                   &max_set, &min_value, &max_value, &average_value);
    ctrl.info(
        "Ran {} random subsets of size {}, (minvalue <= avgvalue <= maxvalue) = ({:.10g} <= "
        "{:.10g} <= {:.10g})",
        randomevaluations, k, min_value, average_value, max_value);
    if (ctrl_lograndomevalsolutions) {
      std::vector<int> elements;
      min_set.ToVector(elements);
      ctrl.info("Set achieving minimum random val: {}", SetText(elements));
      max_set.ToVector(elements);
      ctrl.info("Set achieving maximum random val: {}", SetText(elements));
    }
  }

  // Summarization, timed. A chosen algorithm that draws random numbers gets
  // its seed from the engine (so -rseed and -seed govern it too).
  const int algorithm_seed = choice.IsPlainStandard() ? 0 : static_cast<int>(engine() >> 1);
  if (!choice.IsPlainStandard()) ctrl.info("Greedy algorithm: {}.", choice.Description());
  const Clock before = Clock::Now();
  Summary summary = partialenumeration > 0
                        ? RunPartialEnumeration(*f, *constraint, candidates, inclusion,
                                                partialenumeration, choice, algorithm_seed, ctrl)
                        : RunGreedy(*f, *constraint, candidates, inclusion, choice, algorithm_seed);
  const Clock after = Clock::Now();
  const double user = after.user - before.user, system = after.system - before.system;
  ctrl.info("Summarization time: CPU {}s (User: {}s; System: {}s); Wall Clock {}s.", user + system,
            user, system, after.wall - before.wall);
  const int room = std::min(k, constraint->SizeLimit()) - inclusion.size();
  if (summary.order.empty() && room > 0) {
    ctrl.warn(
        "WARNING: No work was done by the algorithm.\nCould indicate a numerical problem (Infs or "
        "NaNs) due to "
        "an invalid input matrix,\na transform thereof that results in an invalid matrix, a "
        "centrality "
        "computation on\nthat matrix (or transformation on that centrality) that leads to "
        "numerical overflow\n"
        "problems, and/or an invalid submodular specification. Results below will be invalid.\nFix "
        "the above, or "
        "try running with FP exceptions turned on.");
  }
  const double value = summary.value;
  if (!std::isfinite(value)) {
    throw InputAndOrParameterDataError(
        exception::MakeCommandMessage("Solution has non-finite or NaN value (%g) when using "
                                      "current parameters and input. Exiting since "
                                      "results are likely invalid.",
                                      value));
  }

  // Reports.
  std::vector<int> members;
  summary.solution.ToVector(members);
  if (ctrl_logval) {
    if (ctrl_logsolution) {
      ctrl.info("Summary valuation: f({}) = {:.8g}", SetText(members), value);
    } else {
      ctrl.info("Summary valuation: f(Solution) = {:.8g}", value);
    }
  }
  if (ctrl_logsolution) ctrl.info("Solution Set: {}", SetText(members));
  if (ctrl_logorder) {
    const std::string text = VectorText(summary.order, "elements_in_rank_order");
    ctrl.info("Summary Solution: {:.{}}", text, text.size());
  }
  if (ctrl_loggains) {
    const std::string text = VectorText(summary.gains, "gains");
    ctrl.info("Summary Gains: {:.{}}", text, text.size());
  }
  if (ctrl_logcgains) {
    std::vector<double> cumulative(summary.gains.size());
    double running = 0.0;
    for (std::size_t i = 0; i < summary.gains.size(); ++i)
      cumulative[i] = running += summary.gains[i];
    const std::string text = VectorText(cumulative, "cgains");
    ctrl.info("Summary Cumulative Gains: {:.{}}", text, text.size());
  }
  std::vector<double> curvature;
  if (ctrl_logdetail || ctrl_logccurvature || pgpyplotfilename != nullptr) {
    curvature = ConditionalCurvature(*f, summary.solution, summary.order, summary.gains, ctrl);
  }
  if (ctrl_logccurvature) {
    ctrl.info("Summary Conditional Curvature: {}", VectorText(curvature, "conditional_curvature"));
  }
  if (ctrl_logdetail) LogDetailReport(*f, summary.order, curvature, value, ctrl);
  if (ctrl_logbalancereport > 0) {
    LogBalanceReport(mixture, objective.names, set_contraction != nullptr ? &contraction : nullptr,
                     summary.order, ctrl);
  }
  WriteOutputFiles(summary.order, summary.gains);
  WriteGainsPlotScript(pgpyplotfilename, pgpypuginpyplot, pgpyccclogscale, summary.order,
                       summary.gains, curvature);
  return 0;
}

}  // namespace velmor
