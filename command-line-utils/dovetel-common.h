#ifndef VELMOR_COMMAND_LINE_UTILS_DOVETEL_COMMON_H_
#define VELMOR_COMMAND_LINE_UTILS_DOVETEL_COMMON_H_

// The summarization driver of quillo: from parsed options to a summary, its
// reports and its output files.

#include <memory>

namespace spdlog {
class logger;
}

namespace velmor {

// The registered ctrl logger; throws std::runtime_error "Unable to find ctrl
// logger." when logging has not been set up.
std::shared_ptr<spdlog::logger> ControlLogger();

// Runs everything after option parsing and logging set-up: library threads,
// the driver's random engine, the objective (every function group whose input
// is given, mixed by responsibility), the set modifications, the constraint,
// random evaluations, the timed greedy (or partial enumeration), the reports
// and the output files. Returns the exit status 0; failures are exceptions
// (CommandLineError, InputDataError, InputAndOrParameterDataError and the
// library's standard ones).
int RunSummarization();

}  // namespace velmor

#endif  // VELMOR_COMMAND_LINE_UTILS_DOVETEL_COMMON_H_
