#include "command-line-utils/dovetel-common.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <Eigen/Core>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "command-line-utils/GreedyAlgorithmChoice.h"
#include "command-line-utils/SetSpecification.h"
#include "command-line-utils/common-command-line-routines.h"
#include "command-line-utils/velmor_arguments.h"
#include "constraints/IntersectionOfMatroidsSetConstraint.h"
#include "io/DenseMatrixIO.h"
#include "matrixvector/Centrality.h"
#include "matrixvector/MatrixTransformations.h"
#include "summarization/SummaryObjective.h"
#include "summarization/SummaryPlan.h"
#include "summarization/SummaryRun.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"

namespace velmor {
namespace {

using exception::CommandLineError;
using exception::InputDataError;
using matrixio::DenseMatrix;
using Group = SummaryPlan::FunctionGroup;

// Dense matrices are held in single precision: half the memory traffic of the
// gain loops, and ample for similarities.
using Real = float;

std::string Text(const char* text) { return text != nullptr ? text : ""; }

void CheckNonNegativeWeight(const std::string& tag, double weight) {
  if (!(weight >= 0.0)) {
    throw CommandLineError(exception::MakeCommandMessage(
        "%s weight = '%g', but must be non-negative", tag.c_str(), weight));
  }
}

Group NewGroup(SummaryPlan::Kind kind, const std::string& tag, double responsibility,
               bool no_normalize = false, double softness = 0.0) {
  Group group;
  group.kind = kind;
  group.tag = tag;
  group.responsibility = responsibility;
  group.normalize = !no_normalize;
  group.softness = softness;
  return group;
}

// The plan being filled, and the engine that set strings draw from.
struct PlanBuilder {
  SummaryPlan plan;
  std::mt19937 engine;
  spdlog::logger& ctrl;

  std::optional<UnorderedHashSet> Set(const char* text, int64_t n, const std::string& option) {
    if (text == nullptr) return std::nullopt;
    return ParseSetSpecification(text, static_cast<int>(n), engine, option);
  }

  // A facility-location group's attraction, neglect and contraction sets.
  void AddGroupSets(Group& group, const char* contraction, const char* attraction,
                    const char* neglect, const std::string& option_prefix) {
    if (neglect != nullptr && attraction == nullptr) {
      throw CommandLineError(exception::MakeCommandMessage(
          "%s given a neglect set string for R but not given any attraction set string for G.",
          group.tag.c_str()));
    }
    const int64_t n = group.Items();
    if (attraction != nullptr) {
      group.attraction = Set(attraction, n, option_prefix + "-set-attraction");
      group.neglect = Set(neglect, n, option_prefix + "-set-neglect");
    }
    group.contraction = Set(contraction, n, option_prefix + "-set-contraction");
  }
};

// ----- Facility-location groups ---------------------------------------------

// The options of one facility-location group (FL or FL2).
struct FacilityLocationOptions {
  const char* tag;
  const char* prefix;
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

// The group's centrality vector: one value per element (matrix row).
std::vector<double> GroupCentrality(const DenseMatrix<Real>& matrix,
                                    const FacilityLocationOptions& g) {
  const std::optional<CentralityKind> kind =
      CentralityKindFromSpecification(Text(g.centrality_spec));
  if (!kind) {
    throw CommandLineError(exception::MakeCommandMessage(
        "%s centrality '%s' is not supported; use ROWMIN(), ROWMAX(), ROWSUM() or ROWMEAN().",
        g.tag, Text(g.centrality_spec).c_str()));
  }
  if (Text(g.centrality_ccf_spec) != "LINEAR()") {
    throw CommandLineError(
        exception::MakeCommandMessage("%s centrality curve '%s' is not supported; use LINEAR().",
                                      g.tag, Text(g.centrality_ccf_spec).c_str()));
  }
  DenseMatrix<double> centrality = ComputeCentrality(matrix, *kind);
  if (!Text(g.centrality_transformation).empty()) {
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

void AddFacilityLocationGroup(const FacilityLocationOptions& g, PlanBuilder& builder) {
  if (g.file_name == nullptr) return;
  CheckNonNegativeWeight(g.tag, g.responsibility);
  CheckNonNegativeWeight(std::string(g.tag) + " centrality", g.centrality_responsibility);
  if (g.asym_iterations > 0) {
    throw CommandLineError(exception::MakeCommandMessage(
        "%s asymmetric iterations (%d) are not supported; use 0.", g.tag, g.asym_iterations));
  }
  Group group = NewGroup(SummaryPlan::Kind::kFacilityLocation, g.tag, g.responsibility,
                         g.no_normalize, g.softness);
  // An untransformed .npy file of our element type in C order is used where it
  // lies, mapped into memory. Saving the matrix and the centrality need the
  // loaded n x k matrix, so they take the reading path.
  const bool read_as_it_lies = !g.one_hot_expand && Text(g.transformation).empty() &&
                               g.save_matrix == nullptr && !(g.centrality_responsibility > 0);
  std::optional<matrixio::MappedNumpyMatrix<Real>> mapped;
  if (read_as_it_lies) mapped = MapNumpyMatrixInPlace<Real>(g.tag, g.file_name);
  SummaryPlan::DenseInput<Real> input;
  if (mapped) {
    builder.ctrl.debug("{} matrix file '{}' mapped into memory.", g.tag, g.file_name);
    input.items = mapped->rows();
    input.values_per_item = mapped->cols();
    input.element_major = std::move(*mapped).Share();
  } else {
    input.rows = LoadAndTransformMatrix<Real>(g.tag, g.file_name, g.rows, g.cols, g.transformation,
                                              g.one_hot_expand);
  }
  if (g.save_matrix != nullptr) matrixio::WriteMatrixToFile(input.rows, g.save_matrix, false);
  std::vector<double> centrality;
  if (g.centrality_responsibility > 0) centrality = GroupCentrality(input.rows, g);
  group.dense = std::move(input);
  builder.AddGroupSets(group, g.set_contraction, g.set_attraction, g.set_neglect, g.prefix);
  builder.plan.groups.push_back(std::move(group));
  if (!centrality.empty()) {
    Group modular = NewGroup(SummaryPlan::Kind::kCentrality, g.tag, g.centrality_responsibility);
    modular.centrality = std::move(centrality);
    builder.plan.groups.push_back(std::move(modular));
  }
}

// ----- Sparse and dispersion groups ---------------------------------------------

void AddSparseFacilityLocationGroup(PlanBuilder& builder) {
  using namespace options;
  if (spflfilename == nullptr) return;
  if (!(spflresponsibility >= 0)) {
    throw CommandLineError(
        "Sparse facility location function needs non-negative responsibility value.");
  }
  Group group = NewGroup(SummaryPlan::Kind::kSparseFacilityLocation, "SPFL", spflresponsibility,
                         spflnonormalize, spflsoftness);
  group.sparse = LoadAndTransformSparseMatrix<Real>("SPFL", spflfilename, spflrows, spflcols,
                                                    spfltransformation);
  builder.AddGroupSets(group, spfl_set_contraction, spfl_set_attraction, spfl_set_neglect, "spfl");
  builder.plan.groups.push_back(std::move(group));
}

void AddDenseDispersionGroup(const char* tag, const char* file_name, int rows, int cols,
                             const char* transformation, double responsibility, bool no_normalize,
                             PlanBuilder& builder) {
  if (file_name == nullptr) return;
  if (!(responsibility >= 0)) {
    throw CommandLineError("SumSumDispersion function needs non-negative responsibility value.");
  }
  Group group = NewGroup(SummaryPlan::Kind::kDispersion, tag, responsibility, no_normalize);
  SummaryPlan::DenseInput<Real> input;
  input.rows = LoadAndTransformMatrix<Real>(tag, file_name, rows, cols, transformation);
  group.dense = std::move(input);
  builder.plan.groups.push_back(std::move(group));
}

void AddSparseDispersionGroup(const char* tag, const char* file_name, const char* transformation,
                              double responsibility, bool no_normalize, PlanBuilder& builder) {
  if (file_name == nullptr) return;
  if (!(responsibility >= 0)) {
    throw CommandLineError(std::string(tag) + " needs non-negative responsibility value.");
  }
  Group group = NewGroup(SummaryPlan::Kind::kSparseDispersion, tag, responsibility, no_normalize);
  group.sparse = LoadAndTransformSparseMatrix<Real>(tag, file_name, -1, -1, transformation);
  builder.plan.groups.push_back(std::move(group));
}

void AddFunctionGroups(PlanBuilder& builder) {
  using namespace options;
  AddFacilityLocationGroup(
      FacilityLocationOptions(
          "FL", "fl", flfilename, flrows, flcols, flresponsibility, fltransformation, flsoftness,
          flnonormalize, flcentralityresponsibility, flcentralityspec, flcentralitytransformation,
          flcentralityccfspec, flohexpand, flasymiterations, fl_set_contraction, fl_set_attraction,
          fl_set_neglect, flsavefinaltransformedmatrix, flsavefinalcentralityvector),
      builder);
  AddFacilityLocationGroup(
      FacilityLocationOptions(
          "FL2", "fl2", fl2filename, fl2rows, fl2cols, fl2responsibility, fl2transformation,
          fl2softness, fl2nonormalize, fl2centralityresponsibility, fl2centralityspec,
          fl2centralitytransformation, fl2centralityccfspec, fl2ohexpand, fl2asymiterations,
          fl2_set_contraction, fl2_set_attraction, fl2_set_neglect, fl2savefinaltransformedmatrix,
          fl2savefinalcentralityvector),
      builder);
  AddSparseFacilityLocationGroup(builder);
  AddDenseDispersionGroup("SSD", ssdfilename, ssdrows, ssdcols, ssdtransformation,
                          ssdresponsibility, ssdnonormalize, builder);
  AddDenseDispersionGroup("SSD2", ssd2filename, ssd2rows, ssd2cols, ssd2transformation,
                          ssd2responsibility, ssd2nonormalize, builder);
  AddSparseDispersionGroup("SPSSD", spssdfilename, spssdtransformation, spssdresponsibility,
                           spssdnonormalize, builder);
  AddSparseDispersionGroup("SPSSD2", spssd2filename, spssd2transformation, spssd2responsibility,
                           spssd2nonormalize, builder);
  const std::vector<Group>& groups = builder.plan.groups;
  if (groups.empty()) {
    throw CommandLineError("Need to specify at least one function on command line.");
  }
  double total = 0.0;
  for (const Group& group : groups) total += group.responsibility;
  if (!(total > 0)) {
    throw CommandLineError(exception::MakeCommandMessage(
        "Error: a non-positive sum of responsibilities (%g) is invalid.", total));
  }
}

// ----- Sets, size, constraint, algorithm, reports -------------------------------

void FillTheRest(PlanBuilder& builder, const GreedyAlgorithmChoice& choice) {
  using namespace options;
  SummaryPlan& plan = builder.plan;
  const int64_t n = plan.groups.front().Items();
  plan.sets.restriction = builder.Set(set_restriction, n, "set-restriction");
  plan.sets.deletion = builder.Set(set_deletion, n, "set-deletion");
  plan.sets.inclusion = builder.Set(set_inclusion, n, "set-inclusion");
  plan.sets.contraction = builder.Set(set_contraction, n, "set-contraction");
  plan.summary_size = SummarySizeFromOption(sumsize, n, imjson != nullptr);
  if (imjson != nullptr) {
    try {
      plan.constraint = IntersectionOfMatroidsSetConstraint::FromJSONFile(imjson);
    } catch (...) {
      VELMOR_THROW_NESTED(InputDataError, "Error reading through JSON file '%s'.", imjson);
    }
  }
  // A chosen algorithm that draws random numbers gets its seed from the
  // engine (so -rseed and -seed govern it too).
  plan.algorithm = {.choice = choice,
                    .seed = choice.IsPlainStandard() ? 0 : static_cast<int>(builder.engine() >> 1),
                    .partial_enumeration = partialenumeration,
                    .partial_enumeration_log_period = ctrl_logpartialenumperiod};
  plan.random_evaluations = {.count = randomevaluations,
                             .seed = static_cast<uint32_t>(seed),
                             .log_sets = ctrl_lograndomevalsolutions};
  plan.reports = {.numpy_vectors = ctrl_lognpv,
                  .value = ctrl_logval,
                  .solution = ctrl_logsolution,
                  .order = ctrl_logorder,
                  .gains = ctrl_loggains,
                  .cumulative_gains = ctrl_logcgains,
                  .conditional_curvature = ctrl_logccurvature,
                  .detail = ctrl_logdetail,
                  .balance = ctrl_logbalancereport,
                  .keep_conditional_curvature = pgpyplotfilename != nullptr};
}

// The library's objective, its group failures reported from here.
SummaryObjective BuildObjective(SummaryPlan& plan, spdlog::logger& ctrl) {
  try {
    return SummaryObjective(plan, ctrl);
  } catch (const SummaryObjective::GroupError& failure) {
    try {
      std::rethrow_if_nested(failure);
    } catch (...) {
      VELMOR_THROW_NESTED(std::runtime_error, "%s", failure.Text().c_str());
    }
    throw std::runtime_error(VELMOR_SOURCE_MESSAGE("%s", failure.Text().c_str()));
  }
}

// ----- Output files ---------------------------------------------------------------

template <typename T>
void WriteVectorFile(const char* file_name, const std::vector<T>& values) {
  try {
    WriteSummaryVector(file_name, values);
  } catch (...) {
    VELMOR_THROW_NESTED(
        InputDataError, "%s",
        fmt::format("Can't open file '{}' for writing to output.", file_name).c_str());
  }
}

void WriteOutputFiles(const std::vector<int>& order, const std::vector<float>& gains) {
  using namespace options;
  if (outfilesummary != nullptr) WriteVectorFile(outfilesummary, order);
  if (outfilegains != nullptr) WriteVectorFile(outfilegains, gains);
  if (outasciiresultsfilename != nullptr)
    WriteAsciiResultsFile(outasciiresultsfilename, order, gains);
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

LoggingOptions ProgramLoggingOptions() {
  using namespace options;
  return {loglevels, cloglevel, clogtimestamps, clogconcise, flogfilename, floglevel};
}

void SeedCRandomGenerator() {
  std::srand(options::rseed ? static_cast<unsigned>(std::time(nullptr))
                            : static_cast<unsigned>(options::seed));
}

int RunSummarization() {
  using namespace options;
  if (optm_logiterperiod >= 0) greedy_max::SetProgressLoggingPeriod(optm_logiterperiod);
  const auto ctrl_logger = ControlLogger();
  spdlog::logger& ctrl = *ctrl_logger;
  const GreedyAlgorithmChoice choice =
      ParseGreedyAlgorithmChoice(greedyalgorithm, "greedyalgorithm");
  SetLibraryThreads(numlibthreads, ctrl);
  PlanBuilder builder{.plan = {}, .engine = {}, .ctrl = ctrl};
  if (rseed) {
    builder.engine.seed(std::random_device("default")());
  } else {
    builder.engine.seed(static_cast<std::mt19937::result_type>(seed));
  }
  if (ctrl_loglimits) {
    ctrl.info(
        "Program limits: ground set size and summary size at most {}, element indices are 32-bit.",
        std::numeric_limits<int32_t>::max());
  }

  AddFunctionGroups(builder);
  FillTheRest(builder, choice);
  const SummaryObjective objective = BuildObjective(builder.plan, ctrl);
  const SummaryResult result = RunSummary(objective, builder.plan, ctrl);
  if (!result.summarized) return 0;
  WriteOutputFiles(result.order, result.gains);
  WriteGainsPlotScript(pgpyplotfilename, pgpypuginpyplot, pgpyccclogscale, result.order,
                       result.gains, result.conditional_curvature);
  return 0;
}

}  // namespace velmor
