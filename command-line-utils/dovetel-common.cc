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
#include "command-line-utils/RunOptions.h"
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
#include "utils/ProgressIndicator.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"

namespace velmor {
namespace {

using exception::CommandLineError;
using exception::InputDataError;
using matrixio::DenseMatrix;
using Group = SummaryPlan::FunctionGroup;

std::string Text(const char* text) { return text != nullptr ? text : ""; }

// The plan being filled, the engine that set strings draw from, and the
// precision the groups' matrices are held in.
struct PlanBuilder {
  SummaryPlan plan;
  std::mt19937 engine;
  spdlog::logger& ctrl;
  Precision precision;

  bool InDouble(const char* file_name) const { return RunsInDouble(precision, file_name); }

  std::optional<UnorderedHashSet> Set(const char* text, int64_t n, const std::string& option) {
    if (text == nullptr) return std::nullopt;
    return ParseSetSpecification(text, static_cast<int>(n), engine, option);
  }

  // Adds a facility-location group with its attraction, neglect and
  // contraction sets, parsed over the group's ground set (a neglect set
  // without an attraction set was refused before loading).
  void AddGroup(Group group, const char* contraction, const char* attraction, const char* neglect,
                const std::string& option_prefix) {
    const int64_t n = group.Items();
    if (attraction != nullptr) {
      group.attraction = Set(attraction, n, option_prefix + "-set-attraction");
      group.neglect = Set(neglect, n, option_prefix + "-set-neglect");
    }
    group.contraction = Set(contraction, n, option_prefix + "-set-contraction");
    plan.groups.push_back(std::move(group));
  }
};

// ----- Facility-location groups ---------------------------------------------

// The group's centrality vector: one value per element (matrix row).
template <typename T>
std::vector<double> GroupCentrality(const DenseMatrix<T>& matrix,
                                    const FacilityLocationGroupOptions& g) {
  const CentralityKind kind = *CentralityKindFromText(Text(g.centrality_spec));
  DenseMatrix<double> centrality = ComputeCentrality(matrix, kind);
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

template <typename T>
void AddFacilityLocationGroupIn(const FacilityLocationGroupOptions& g, PlanBuilder& builder) {
  // An untransformed .npy file of the element type in C order is used where
  // it lies, a symmetric transformed matrix as it is. Saving the matrix and
  // the centrality need the loaded rows.
  const bool may_share = g.save_matrix == nullptr && !(g.centrality_responsibility > 0);
  DenseMatrixInput<T> input =
      LoadDenseGroupMatrix<T>(g.tag, g.file_name, g.rows, g.cols, g.transformation,
                              g.one_hot_expand, may_share, builder.ctrl, builder.plan.threads);
  if (g.save_matrix != nullptr) matrixio::WriteMatrixToFile(input.rows, g.save_matrix, false);
  std::vector<double> centrality;
  if (g.centrality_responsibility > 0) centrality = GroupCentrality(input.rows, g);
  Group group(SummaryPlan::Kind::kFacilityLocation, g.tag, g.responsibility, !g.no_normalize,
              g.softness);
  group.dense = std::move(input);
  builder.AddGroup(std::move(group), g.set_contraction, g.set_attraction, g.set_neglect, g.prefix);
  if (!centrality.empty()) {
    Group modular(SummaryPlan::Kind::kCentrality, g.tag, g.centrality_responsibility);
    modular.centrality = std::move(centrality);
    builder.plan.groups.push_back(std::move(modular));
  }
}

void AddFacilityLocationGroup(const FacilityLocationGroupOptions& g, PlanBuilder& builder) {
  if (g.file_name == nullptr) return;
  if (builder.InDouble(g.file_name)) {
    AddFacilityLocationGroupIn<double>(g, builder);
  } else {
    AddFacilityLocationGroupIn<float>(g, builder);
  }
}

// ----- Sparse and dispersion groups ---------------------------------------------

void AddSparseFacilityLocationGroup(PlanBuilder& builder) {
  using namespace options;
  if (spflfilename == nullptr) return;
  Group group(SummaryPlan::Kind::kSparseFacilityLocation, "SPFL", spflresponsibility,
              !spflnonormalize, spflsoftness);
  group.sparse = LoadSparseGroupMatrix(builder.precision, "SPFL", spflfilename, spflrows, spflcols,
                                       spfltransformation, builder.plan.threads);
  builder.AddGroup(std::move(group), spfl_set_contraction, spfl_set_attraction, spfl_set_neglect,
                   "spfl");
}

void AddDispersionGroup(const DispersionGroupOptions& d, PlanBuilder& builder) {
  if (d.file_name == nullptr) return;
  Group group(d.sparse ? SummaryPlan::Kind::kSparseDispersion : SummaryPlan::Kind::kDispersion,
              d.tag, d.responsibility, !d.no_normalize);
  if (d.sparse) {
    group.sparse = LoadSparseGroupMatrix(builder.precision, d.tag, d.file_name, d.rows, d.cols,
                                         d.transformation, builder.plan.threads);
  } else {
    group.dense = LoadDenseGroupMatrix(builder.precision, d.tag, d.file_name, d.rows, d.cols,
                                       d.transformation, builder.plan.threads);
  }
  builder.plan.groups.push_back(std::move(group));
}

void AddFunctionGroups(PlanBuilder& builder) {
  AddFacilityLocationGroup(FacilityLocationOptions(), builder);
  AddFacilityLocationGroup(SecondFacilityLocationOptions(), builder);
  AddSparseFacilityLocationGroup(builder);
  for (const DispersionGroupOptions& d : DispersionGroups()) AddDispersionGroup(d, builder);
  double total = 0.0;
  for (const Group& group : builder.plan.groups) total += group.responsibility;
  if (!(total > 0)) {
    throw CommandLineError(exception::MakeCommandMessage(
        "Error: a non-positive sum of responsibilities (%g) is invalid.", total));
  }
}

// ----- Sets, size, constraint, algorithm, reports -------------------------------

void AddSetsConstraintAndRunSettings(PlanBuilder& builder, const GreedyAlgorithmChoice& choice) {
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
                             .seed = static_cast<uint32_t>(rseed ? builder.engine() : seed),
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

[[noreturn]] void ThrowCannotWrite(const char* file_name) {
  VELMOR_THROW_NESTED(
      InputDataError, "%s",
      fmt::format("Can't open file '{}' for writing to output.", file_name).c_str());
}

// Output files that cannot be written end the run before any work; the plot
// script's is only reported, as it would be at the end.
void CheckOutputFiles(spdlog::logger& ctrl) {
  using namespace options;
  for (const char* path : {outfilesummary, outfilegains, outasciiresultsfilename}) {
    if (const std::optional<std::string> problem = OutputFileProblem(path)) {
      try {
        throw std::runtime_error(*problem);
      } catch (...) {
        ThrowCannotWrite(path);
      }
    }
  }
  if (const std::optional<std::string> problem = OutputFileProblem(pgpyplotfilename)) {
    ctrl.warn("Can't open file '{}' for writing to output ({}); no plot script will be written.",
              pgpyplotfilename, *problem);
  }
}

template <typename T>
void WriteVectorFile(const char* file_name, const std::vector<T>& values) {
  try {
    WriteSummaryVector(file_name, values);
  } catch (...) {
    ThrowCannotWrite(file_name);
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

void SeedCRandomGenerator() {
  std::srand(options::rseed ? static_cast<unsigned>(std::time(nullptr))
                            : static_cast<unsigned>(options::seed));
}

SummaryPlan FillSummaryPlan(spdlog::logger& ctrl) {
  using namespace options;
  if (optm_logiterperiod >= 0) greedy_max::SetProgressLoggingPeriod(optm_logiterperiod);
  const CheckedRunOptions checked = CheckOptionsBeforeLoading();
  const GreedyAlgorithmChoice& choice = checked.algorithm;
  PlanBuilder builder{.plan = {}, .engine = {}, .ctrl = ctrl, .precision = checked.precision};
  CheckOutputFiles(ctrl);
  SetLibraryThreads(numlibthreads, ctrl);
  if (numthreads < 0) {
    throw CommandLineError(exception::MakeCommandMessage(
        "Invalid thread count %d for option -numthreads: use 0 (the machine's cores) or more.",
        numthreads));
  }
  builder.plan.threads = numthreads;
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
  AddSetsConstraintAndRunSettings(builder, choice);
  return std::move(builder.plan);
}

void WriteSummaryOutputs(const SummaryResult& result) {
  using namespace options;
  WriteOutputFiles(result.order, result.gains);
  WriteGainsPlotScript(pgpyplotfilename, pgpypuginpyplot, pgpyccclogscale, result.order,
                       result.gains, result.conditional_curvature);
}

namespace {

// The greedy's steps shown on `progress` ("summary: 37/100 ..."), erased
// when the greedy work ends; nothing when `progress` does not draw.
GreedyStepObserver SummaryProgress(ProgressIndicator& progress) {
  if (!progress.enabled()) return {};
  return {.on_step = [&progress](int chosen, int most) {
    progress.Update("summary", chosen, most);
    if (chosen >= most) progress.Finish();
  }};
}

}  // namespace

int RunSummarization() {
  const auto ctrl_logger = ControlLogger();
  spdlog::logger& ctrl = *ctrl_logger;
  SummaryPlan plan = FillSummaryPlan(ctrl);
  const SummaryObjective objective = BuildObjective(plan, ctrl);
  ProgressIndicator progress = ProgressIndicator::Terminal();
  const SummaryResult result = RunSummary(objective, plan, ctrl, SummaryProgress(progress));
  if (!result.summarized) return 0;
  WriteSummaryOutputs(result);
  return 0;
}

}  // namespace velmor
