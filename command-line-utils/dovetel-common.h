#ifndef VELMOR_COMMAND_LINE_UTILS_DOVETEL_COMMON_H_
#define VELMOR_COMMAND_LINE_UTILS_DOVETEL_COMMON_H_

// The summarization driver of quillo: from parsed options to a summary, its
// reports and its output files. The option variables are read here and in
// RunOptions (the groups' options, the checks before loading): they fill one
// SummaryPlan, which the library runs.

#include <memory>

#include "command-line-utils/RunOptions.h"
#include "summarization/SummaryPlan.h"
#include "summarization/SummaryRun.h"

namespace spdlog {
class logger;
}

namespace velmor {

// The registered ctrl logger; throws std::runtime_error "Unable to find ctrl
// logger." when logging has not been set up.
std::shared_ptr<spdlog::logger> ControlLogger();

// Seeds the C library's generator: from the time with -rseed, else with -seed.
void SeedCRandomGenerator();

// The run the options describe, after option parsing and logging set-up:
// the checks of CheckOptionsBeforeLoading; sets the greedy's progress logging period and the
// library threads, checks the output files, seeds the driver's random engine and fills the plan
// (every function group whose input is given, loaded and transformed; the set
// modifications; the constraint; the algorithm; the reports). Throws as
// RunSummarization.
SummaryPlan FillSummaryPlan(spdlog::logger& ctrl);

// Writes the output files the options ask for (summary order, gains, text
// results, gains plot script) from a summarized result.
void WriteSummaryOutputs(const SummaryResult& result);

// Runs everything after option parsing and logging set-up: the checks of
// CheckOptionsBeforeLoading, the output files' check, library threads,
// the driver's random engine, the plan (every function group whose input is
// given, loaded and transformed; the set modifications; the constraint; the
// algorithm; the reports), the library's objective and run, and the output
// files. Returns the exit status 0; failures are exceptions
// (CommandLineError, InputDataError, InputAndOrParameterDataError and the
// library's standard ones).
int RunSummarization();

}  // namespace velmor

#endif  // VELMOR_COMMAND_LINE_UTILS_DOVETEL_COMMON_H_
