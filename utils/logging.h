#ifndef VELMOR_UTILS_LOGGING_H_
#define VELMOR_UTILS_LOGGING_H_

// The four named loggers of the system and their set-up:
//   optm  maximization algorithms      mtvc  matrix and vector processing
//   mxfm  matrix transformations       ctrl  the driver and its reports
// All share one console sink (error and critical to standard error, the rest
// to standard output) and an optional log file.

#include <spdlog/spdlog.h>

#include <memory>
#include <string>

namespace velmor::logging {

// Creates the sinks and the four loggers, registering each under its name
// (loggers of a previous call are replaced). Any text may be null:
//   log_levels      "{logger=level}+|{level}" list; default "warn,ctrl=info".
//                   The environment variable VELMOR_LOG_LEVELS, when set, is
//                   applied first; this list then sets every logger (one it
//                   does not name, without a level for all, is at info).
//   console_level   level of the console sink (default warning); "off" leaves
//                   the console out of the loggers altogether.
//   timestamps, concise   choose the console pattern (concise without
//                   timestamps shows the bare message).
//   log_file_name   file sink, truncated; pattern with date, logger and level.
//   log_file_level  level of the file sink (default trace).
// Throws std::invalid_argument "Unknown console level given." or "Unknown
// logfile level given." for a level name that is not one.
void SetUpLogging(const char* log_levels, const char* console_level, bool timestamps, bool concise,
                  const char* log_file_name, const char* log_file_level);

// The registered logger of that name; throws std::runtime_error
// "Unable to find <name> logger." when there is none.
std::shared_ptr<spdlog::logger> GetLogger(const std::string& name);

}  // namespace velmor::logging

#endif  // VELMOR_UTILS_LOGGING_H_
