#ifndef VELMOR_COMMAND_LINE_UTILS_DOVETEL_COMMON_H_
#define VELMOR_COMMAND_LINE_UTILS_DOVETEL_COMMON_H_

// The summarization driver of quillo: from parsed options to a summary, its
// reports and its output files. The option variables are read here and in
// RunOptions (the groups' options, the checks before loading): they fill one
// SummaryPlan, which the library runs.

#include <memory>

#include "command-line-utils/RunOptions.h"

namespace spdlog {
class logger;
}

namespace velmor {

// The registered ctrl logger; throws std::runtime_error "Unable to find ctrl
// logger." when logging has not been set up.
std::shared_ptr<spdlog::logger> ControlLogger();

// Seeds the C library's generator: from the time with -rseed, else with -seed.
void SeedCRandomGenerator();

// Runs everything after option parsing and logging set-up: the checks of
// CheckOptionsBeforeLoading,
// the output files' check, library threads,
// the driver's random engine, the plan (every function group whose input is
// given, loaded and transformed; the set modifications; the constraint; the
// algorithm; the reports), the library's objective and run, and the output
// files. Returns the exit status 0; failures are exceptions
// (CommandLineError, InputDataError, InputAndOrParameterDataError and the
// library's standard ones).
int RunSummarization();

}  // namespace velmor

#endif  // VELMOR_COMMAND_LINE_UTILS_DOVETEL_COMMON_H_
