// quillo-mpi: quillo's summarization with the objective spread over the ranks
// of an MPI job (start it with mpirun). It takes quillo's options and writes
// quillo's output files; see README.md ("Across processes and hosts").
//
// Two schemes. Exact (LandmarkSplit, LandmarkSplitGreedy): facility location
// is split by landmarks, each rank holding every item's similarities to its
// own block of landmarks (its columns of the matrix) and computing its part
// of every candidate's gain; the parts are summed across the ranks at each
// step of the standard greedy, which all ranks run in step. Partitioned
// (PartitionedGreedy): each rank summarizes its block of the candidates and
// the summaries merge up a tree. Rank 0 logs and writes the outputs; the
// other ranks log nothing.
//
// A failure is agreed on at fixed points (after loading, after building the
// objective, after writing): the report of the lowest failing rank is logged
// once, by rank 0, and every rank exits with status 1. A failure between
// those points, where the ranks are inside collective calls, ends the job at
// once (MPI_Abort) after the failing rank's report.

#include <fmt/format.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cfenv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "command-line-utils/argument_parser.h"
#include "command-line-utils/argument_record.h"
#include "command-line-utils/dovetel-common.h"
#include "command-line-utils/velmor_arguments.h"
#include "distributed/LandmarkSplit.h"
#include "distributed/LandmarkSplitGreedy.h"
#include "distributed/MpiWorld.h"
#include "distributed/PartitionedGreedy.h"
#include "io/MatrixIOCommon.h"
#include "summarization/SummaryObjective.h"
#include "summarization/SummaryPlan.h"
#include "summarization/SummaryReports.h"
#include "summarization/SummaryRun.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"
#include "utils/logging.h"
#include "utils/top_level_error_report.h"

namespace velmor {
namespace {

using exception::CommandLineError;

// ----- Options: quillo's and the scheme's ----------------------------------------

const char* mpischeme = nullptr;
int32_t mpiary = 0;

enum class Scheme { kExact, kPartitioned };

// quillo's argument table followed by the scheme's rows.
ArgumentParser& DistributedArgumentParser() {
  static std::vector<ArgumentRecord> table = [] {
    std::vector<ArgumentRecord> rows;
    for (const ArgumentRecord* row = ProgramArgumentTable(); !row->IsEnd(); ++row) {
      rows.push_back(*row);
    }
    rows.push_back(ArgumentRecord::Heading("**** Distributed run (quillo-mpi)"));
    rows.push_back(ArgumentRecord(
        "mpischeme", ArgumentRecord::kOptional, &mpischeme,
        "exact (the default): the landmarks (matrix columns) are split across the ranks and "
        "the standard greedy runs on the summed gains, as in one process; partitioned: each "
        "rank summarizes its block of the items and the block summaries merge up a tree."));
    rows.push_back(ArgumentRecord(
        "mpiary", ArgumentRecord::kOptional, &mpiary,
        "partitioned scheme: merge this many summaries per merge, level by level (the number "
        "of ranks must be a power of it); 0 (the default) merges all of them in one run."));
    rows.push_back(ArgumentRecord::End());
    return rows;
  }();
  static ArgumentParser parser(table.data());
  return parser;
}

Scheme ChosenScheme() {
  const std::string text = mpischeme == nullptr ? "exact" : mpischeme;
  if (text == "exact") {
    if (mpiary != 0) {
      throw CommandLineError(
          "Option -mpiary is for the partitioned scheme (-mpischeme partitioned).");
    }
    return Scheme::kExact;
  }
  if (text == "partitioned") return Scheme::kPartitioned;
  throw CommandLineError(exception::MakeCommandMessage(
      "Invalid scheme '%s' for option -mpischeme: use exact or partitioned.", text.c_str()));
}

// Raised after an agreed failure: the report has been logged, the rank exits
// with status 1.
struct AgreedFailure {};

// Runs `step`, then agrees with the other ranks on whether any failed; rank 0
// logs the first failing rank's report.
template <typename Step>
void AgreedStep(const MpiWorld& world, Step&& step) {
  std::exception_ptr failure;
  try {
    step();
  } catch (...) {
    failure = std::current_exception();
  }
  const std::string report = world.AgreeOnFailure(failure);
  if (report.empty()) return;
  if (world.IsRoot()) {
    const auto ctrl = spdlog::get("ctrl");
    if (ctrl) {
      ctrl->critical("{}End of Backtrace.", report);
      ctrl->flush();
    } else {
      std::fprintf(stderr, "%sEnd of Backtrace.\n", report.c_str());
    }
  }
  throw AgreedFailure();
}

// Standard output and error of a rank other than 0 go nowhere while the
// options are parsed, so that a bad command line is reported once.
class QuietUnlessRoot {
 public:
  explicit QuietUnlessRoot(bool root) {
    if (root) return;
    std::fflush(stdout);
    std::fflush(stderr);
    saved_out_ = dup(1);
    saved_err_ = dup(2);
    std::FILE* null = std::fopen("/dev/null", "w");
    if (null != nullptr) {
      dup2(fileno(null), 1);
      dup2(fileno(null), 2);
      std::fclose(null);
    }
  }
  ~QuietUnlessRoot() {
    if (saved_out_ < 0) return;
    std::fflush(stdout);
    std::fflush(stderr);
    dup2(saved_out_, 1);
    dup2(saved_err_, 2);
    close(saved_out_);
    close(saved_err_);
  }
  QuietUnlessRoot(const QuietUnlessRoot&) = delete;
  QuietUnlessRoot& operator=(const QuietUnlessRoot&) = delete;

 private:
  int saved_out_ = -1;
  int saved_err_ = -1;
};

// Only rank 0 writes files: the other ranks neither check nor write the
// output files and the saved matrices and centrality vectors.
void ForgetFilesToWrite() {
  using namespace options;
  for (const char** name : {&outfilesummary, &outfilegains, &outasciiresultsfilename,
                            &flsavefinaltransformedmatrix, &flsavefinalcentralityvector,
                            &fl2savefinaltransformedmatrix, &fl2savefinalcentralityvector}) {
    *name = nullptr;
  }
}

// Parses the options and sets up logging: rank 0 as quillo does, the others
// with the console and the log file left out. Returns false for -help (rank
// 0 has printed the usage).
bool SetUpFromCommandLine(const MpiWorld& world, int argc, char** argv) {
  logging::SetUpLogging(nullptr, world.IsRoot() ? nullptr : "off", false, true, nullptr, nullptr);
  if (argc == 1) {
    throw CommandLineError(exception::MakeCommandMessage("Need to give command line arguments.%s",
                                                         " Use -help for help."));
  }
  bool parsed = false;
  {
    const QuietUnlessRoot quiet(world.IsRoot());
    parsed = DistributedArgumentParser().ParseArguments(argc, argv, nullptr);
    if (options::help) {
      if (world.IsRoot()) DistributedArgumentParser().PrintUsage(nullptr, false);
      return false;
    }
  }
  if (!parsed) {
    throw CommandLineError(exception::MakeCommandMessage("Poorly formed command line arguments.%s",
                                                         " Use -help for help."));
  }
  if (!world.IsRoot()) ForgetFilesToWrite();
  SeedCRandomGenerator();
  std::setbuf(stdout, nullptr);
  try {
    const LoggingOptions o = ProgramLoggingOptions();
    if (world.IsRoot()) {
      logging::SetUpLogging(o.levels, o.console_level, o.timestamps, o.concise, o.file_name,
                            o.file_level);
    } else {
      logging::SetUpLogging(o.levels, "off", o.timestamps, o.concise, nullptr, nullptr);
    }
  } catch (...) {
    VELMOR_THROW_NESTED(std::runtime_error, "Unable to set up velmor logging.");
  }
  return true;
}

// The rank's objective, built without logging (its matrices are the rank's
// part, its responsibilities hold the normalization); rank 0 logs `lines`,
// what the whole objective is.
SummaryObjective BuildQuietly(SummaryPlan& plan, const std::vector<std::string>& lines,
                              spdlog::logger& ctrl) {
  spdlog::logger quiet("quillo-mpi-objective", std::make_shared<spdlog::sinks::null_sink_mt>());
  SummaryObjective local(plan, quiet);
  for (const std::string& line : lines) ctrl.info("{}", line);
  return local;
}

// What the whole objective is made of, for rank 0's log.
std::vector<std::string> DescribeGroups(const SummaryPlan& plan, const std::string& suffix) {
  using Kind = SummaryPlan::Kind;
  std::vector<std::string> lines;
  for (const SummaryPlan::FunctionGroup& g : plan.groups) {
    std::int64_t columns = 1;
    if (g.kind == Kind::kFacilityLocation || g.kind == Kind::kDispersion) {
      columns = std::visit([](const auto& input) { return input.ValuesPerItem(); }, g.dense);
    } else if (g.kind != Kind::kCentrality) {
      columns = std::visit([](const auto& m) -> std::int64_t { return m.cols(); }, g.sparse);
    }
    const char* form =
        g.kind == Kind::kCentrality                                                      ? "modular"
        : (g.kind == Kind::kSparseFacilityLocation || g.kind == Kind::kSparseDispersion) ? "sparse"
                                                                                         : "dense";
    lines.push_back(fmt::format("Creating a {} {} function with a {}x{} matrix{}.", form, g.tag,
                                g.Items(), columns, suffix));
    lines.push_back(fmt::format("Mixing in {} function, relative responsibility {:g}.", g.tag,
                                g.responsibility));
  }
  return lines;
}

double SecondsOfCpu() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

SummaryResult RunGreedy(const MpiWorld& world, const SummaryObjective& local,
                        spdlog::logger& ctrl) {
  const LandmarkSplitGreedy::Collectives collectives{
      .sum = [&world](double* values, int count) { world.SumInPlace(values, count); },
      .root_choice = [&world](int value) { return world.RootValue(value); }};
  const double cpu_before = SecondsOfCpu();
  const auto wall_before = std::chrono::steady_clock::now();
  SummaryResult result = LandmarkSplitGreedy::Run(
      local, collectives, world.IsRoot() ? spdlog::get("optm").get() : nullptr);
  const double wall =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_before).count();
  ctrl.info("Summarization time: CPU {}s on rank 0; Wall Clock {}s on {} ranks.",
            SecondsOfCpu() - cpu_before, wall, world.Ranks());
  return result;
}

// Rank 0's reports and output files. The partitioned scheme's rank 0 holds
// the whole objective and can analyse the summary; the exact scheme's only a
// part of it.
void ReportAndWrite(const SummaryPlan& plan, const SummaryObjective* whole, SummaryResult& result,
                    spdlog::logger& ctrl) {
  CheckSummaryValueIsFinite(result);
  const SummaryPlan::Reports& reports = plan.reports;
  LogResultReports(result, reports, ctrl);
  if (whole != nullptr) {
    if (reports.detail || reports.conditional_curvature || reports.keep_conditional_curvature) {
      result.conditional_curvature = ConditionalCurvature(whole->Function(), result.solution,
                                                          result.order, result.gains, ctrl);
    }
    LogAnalysisReports(*whole, result, reports, ctrl);
  }
  WriteSummaryOutputs(result);
}

// Runs `work` where the ranks are inside collective calls: a failure ends
// the job at once.
template <typename Work>
SummaryResult OrAbort(Work&& work) {
  try {
    return work();
  } catch (...) {
    exception::TopLevelErrorReport(std::current_exception());
    MpiWorld::AbortJob();
  }
}

SummaryResult RunPartitioned(const MpiWorld& world, const SummaryObjective& objective,
                             const SummaryPlan& plan, spdlog::logger& ctrl) {
  ctrl.info("Greedy algorithm: {}, partitioned over {} ranks{}.",
            plan.algorithm.choice.Description(), world.Ranks(),
            mpiary == 0 ? std::string(", all block summaries merged at once")
                        : fmt::format(", merged {} at a time", mpiary));
  const PartitionedGreedy::Collectives collectives{
      .rank = world.Rank(),
      .ranks = world.Ranks(),
      .all_gather = [&world](const std::vector<char>& mine) { return world.AllGather(mine); }};
  const auto wall_before = std::chrono::steady_clock::now();
  const double cpu_before = SecondsOfCpu();
  SummaryResult result = PartitionedGreedy::Run(objective, plan.algorithm, mpiary, collectives);
  const double wall =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_before).count();
  ctrl.info("Summarization time: CPU {}s on rank 0; Wall Clock {}s on {} ranks.",
            SecondsOfCpu() - cpu_before, wall, world.Ranks());
  return result;
}

int Run(const MpiWorld& world, int argc, char** argv) {
  bool go_on = true;
  Scheme scheme = Scheme::kExact;
  AgreedStep(world, [&] {
    go_on = SetUpFromCommandLine(world, argc, argv);
    if (go_on) scheme = ChosenScheme();
  });
  if (!go_on) return 0;
  const auto ctrl_logger = ControlLogger();
  spdlog::logger& ctrl = *ctrl_logger;
  const bool exact = scheme == Scheme::kExact;

  // Each rank loads its part: its columns (exact) or its view of the whole
  // matrices (partitioned), and the largest value of every landmark over its
  // part.
  SummaryPlan plan;
  std::vector<std::vector<double>> landmark_maxima;
  std::vector<std::string> group_lines;
  AgreedStep(world, [&] {
    // The exact scheme checks the values for NaN and infinity itself, each
    // rank its own columns, so that no rank reads the whole file.
    const LandmarkSplit::ValueChecks checks{.nan = matrixio::CheckForIEEENaNOnRead(),
                                            .inf = matrixio::CheckForIEEEInfOnRead()};
    if (exact) {
      matrixio::SetCheckForIEEENaNOnRead(false);
      matrixio::SetCheckForIEEEInfOnRead(false);
    }
    plan = FillSummaryPlan(ctrl);
    matrixio::SetCheckForIEEENaNOnRead(checks.nan);
    matrixio::SetCheckForIEEEInfOnRead(checks.inf);
    if (exact) {
      LandmarkSplit::CheckSupported(plan);
      group_lines =
          DescribeGroups(plan, fmt::format(", its landmarks split across {} ranks", world.Ranks()));
      landmark_maxima = LandmarkSplit::TakeBlocks(plan, world.Rank(), world.Ranks(), checks);
    } else {
      PartitionedGreedy::CheckSupported(plan, mpiary, world.Ranks());
      group_lines = DescribeGroups(plan, "");
      landmark_maxima = PartitionedGreedy::LandmarkMaxima(plan, world.Rank(), world.Ranks());
    }
  });

  // The whole functions' normalizations, then each rank's objective.
  for (std::vector<double>& maxima : landmark_maxima) {
    world.MaxInPlace(maxima.data(), static_cast<int>(maxima.size()));
  }
  std::optional<SummaryObjective> objective;
  AgreedStep(world, [&] {
    LandmarkSplit::FoldNormalization(plan, landmark_maxima);
    objective.emplace(BuildQuietly(plan, group_lines, ctrl));
    LandmarkSplitGreedy::CheckStart(*objective);
  });

  ctrl.info(
      "Summarizing function with ground set of size |V|=n={}, relative ground set |R|={}, {}.",
      objective->GroundSetSize(), objective->Candidates().size(),
      objective->ConstraintDescription());
  if (objective->Candidates().size() == 0) {
    ctrl.info("Relative ground set size being zero means there is no work to do.");
    return 0;
  }
  SummaryResult result = OrAbort([&] {
    return exact ? RunGreedy(world, *objective, ctrl)
                 : RunPartitioned(world, *objective, plan, ctrl);
  });
  AgreedStep(world, [&] {
    if (world.IsRoot()) ReportAndWrite(plan, exact ? nullptr : &*objective, result, ctrl);
  });
  return 0;
}

}  // namespace
}  // namespace velmor

int main(int argc, char** argv) {
  std::feraiseexcept(FE_INVALID | FE_OVERFLOW);
  std::optional<velmor::MpiWorld> world;
  try {
    world.emplace(&argc, &argv);
  } catch (...) {
    return velmor::exception::TopLevelErrorReport(std::current_exception());
  }
  try {
    return velmor::Run(*world, argc, argv);
  } catch (const velmor::AgreedFailure&) {
    return 1;
  } catch (...) {
    // Only the agreed steps throw out of Run.
    velmor::exception::TopLevelErrorReport(std::current_exception());
    velmor::MpiWorld::AbortJob();
  }
}
