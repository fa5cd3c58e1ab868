#include "utils/logging.h"

#include <spdlog/cfg/helpers.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "utils/error_messages.h"
#include "utils/split_stdout_stderr_sink.h"

namespace velmor::logging {
namespace {

constexpr const char* kLoggerNames[] = {"optm", "mtvc", "mxfm", "ctrl"};
constexpr const char* kDefaultLevels = "warn,ctrl=info";

// Parses a level name; nullopt-like false when the name is no level.
bool ParseLevel(const std::string& name, spdlog::level::level_enum& level) {
  level = spdlog::level::from_str(name);
  return !(level == spdlog::level::off && name != "off");
}

const char* ConsolePattern(bool timestamps, bool concise) {
  if (concise) return timestamps ? "[%H:%M:%S] %v" : "%v";
  return timestamps ? "[%Y-%m-%d %H:%M:%S.%e] [%n] [%^%l%$] %v" : "[%n,%^%l%$] %v";
}

}  // namespace

void SetUpLogging(const char* log_levels, const char* console_level, bool timestamps, bool concise,
                  const char* log_file_name, const char* log_file_level) {
  std::vector<spdlog::sink_ptr> sinks;

  spdlog::level::level_enum level = spdlog::level::warn;
  if (console_level != nullptr && !ParseLevel(console_level, level)) {
    VELMOR_THROW(std::invalid_argument, "Unknown console level given.");
  }
  if (level != spdlog::level::off) {
    auto console = std::make_shared<split_stdout_stderr_sink>();
    console->set_level(level);
    console->set_formatter(
        std::make_unique<spdlog::pattern_formatter>(ConsolePattern(timestamps, concise)));
    sinks.push_back(console);
  }

  if (log_file_name != nullptr) {
    spdlog::level::level_enum file_level = spdlog::level::trace;
    if (log_file_level != nullptr && !ParseLevel(log_file_level, file_level)) {
      VELMOR_THROW(std::invalid_argument, "Unknown logfile level given.");
    }
    auto file = std::make_shared<spdlog::sinks::basic_file_sink_mt>(log_file_name, true);
    file->set_level(file_level);
    file->set_pattern("[%Y-%m-%d %H:%M:%S.%e%z] [%n] [%l] %v");
    sinks.push_back(file);
  }

  for (const char* name : kLoggerNames) {
    spdlog::drop(name);
    auto logger = std::make_shared<spdlog::logger>(name, sinks.begin(), sinks.end());
    spdlog::register_logger(logger);
  }

  // The environment first, then the option or the default. The second list
  // sets every logger: those it does not name start again from info, the
  // level of a new logger, before it applies.
  const char* environment = std::getenv("VELMOR_LOG_LEVELS");
  if (environment != nullptr && environment[0] != '\0') {
    spdlog::cfg::helpers::load_levels(environment);
  }
  for (const char* name : kLoggerNames) spdlog::get(name)->set_level(spdlog::level::info);
  spdlog::cfg::helpers::load_levels(log_levels != nullptr ? log_levels : kDefaultLevels);
}

std::shared_ptr<spdlog::logger> GetLogger(const std::string& name) {
  auto logger = spdlog::get(name);
  if (!logger) {
    throw std::runtime_error(VELMOR_SOURCE_MESSAGE(fmt::format("Unable to find {} logger.", name)));
  }
  return logger;
}

}  // namespace velmor::logging
