// quillo: picks a small, representative and diverse summary of a data set by
// greedy maximization of a submodular objective. See README.md for usage.
//
// The process splits at once: the parent supervises (forwarding SIGTERM and
// SIGINT to the process group and exiting with the child's status), the child
// does the work.

#include <cfenv>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "command-line-utils/dovetel-common.h"
#include "command-line-utils/velmor_arguments.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"
#include "utils/logging.h"
#include "utils/signal_handling.h"
#include "utils/top_level_error_report.h"

namespace {

// The worker's signal handlers are installed during static initialization,
// before main runs, so the child inherits them.
const bool worker_signal_handlers_installed = velmor::InstallWorkerSignalHandlers();

}  // namespace

int main(int argc, char** argv) {
  using velmor::exception::CommandLineError;
  velmor::SplitIntoSupervisorAndWorker();
  std::feraiseexcept(FE_INVALID | FE_OVERFLOW);
  (void)worker_signal_handlers_installed;
  try {
    // Default loggers, so that a failure before the options are known is
    // still reported on ctrl.
    velmor::logging::SetUpLogging(nullptr, nullptr, false, true, nullptr, nullptr);
    if (argc == 1) {
      throw CommandLineError(velmor::exception::MakeCommandMessage(
          "Need to give command line arguments.%s", " Use -help for help."));
    }
    if (!velmor::ParseArguments(argc, argv, "help")) {
      throw CommandLineError(velmor::exception::MakeCommandMessage(
          "Poorly formed command line arguments.%s", " Use -help for help."));
    }
    velmor::SeedCRandomGenerator();
    std::setbuf(stdout, nullptr);
    try {
      const velmor::LoggingOptions o = velmor::ProgramLoggingOptions();
      velmor::logging::SetUpLogging(o.levels, o.console_level, o.timestamps, o.concise, o.file_name,
                                    o.file_level);
    } catch (...) {
      VELMOR_THROW_NESTED(std::runtime_error, "Unable to set up velmor logging.");
    }
    return velmor::RunSummarization();
  } catch (...) {
    return velmor::exception::TopLevelErrorReport(std::current_exception());
  }
}
