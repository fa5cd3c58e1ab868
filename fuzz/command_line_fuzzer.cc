// Command lines walked by the program's argument parser against its option
// table: any argument vector ends in one of the parser's three statuses, the
// missing-argument report and the usage text included, never in a crash or a
// hang. A command line that parses then goes through the driver's steps up to
// the first matrix load: the logging set-up from its options (without a log
// file) and the option checks before loading. These either pass or throw a
// std::exception that the top-level report can print, and they pass only
// when some function group's file is given.
//
// The file name after an argument-file switch is replaced by a small argument
// file of this harness (argument files themselves have their own harness),
// and such a switch with nothing after it is dropped: the parser ends the
// process for it, as it must.
#include <exception>
#include <string>
#include <vector>

#include "command-line-utils/RunOptions.h"
#include "command-line-utils/argument_parser.h"
#include "fuzz/argument_parsing.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/fuzz_targets.h"
#include "utils/logging.h"
#include "utils/top_level_error_report.h"

namespace velmor::fuzz {
namespace {

constexpr std::size_t kMostArguments = 64;

std::string ArgumentsFile() {
  return WriteScratchFile(
      "command_line_arguments.txt",
      "# options read from a file\nsumsize 5\nfltransformation=RBF()\nctrl-logorder\n"
      "noSuchOption 3\nseed = 7\n");
}

bool SomeFunctionGroupGiven() {
  using namespace options;
  for (const char* file : {flfilename, fl2filename, spflfilename, ssdfilename, ssd2filename,
                           spssdfilename, spssd2filename}) {
    if (file != nullptr) return true;
  }
  return false;
}

// Runs `step`; a std::exception it throws must make a top-level report.
template <typename Step>
bool StepSucceeds(Step&& step) {
  return Succeeds(step, [] {
    const std::string report = exception::TopLevelErrorReportText(std::current_exception());
    VELMOR_FUZZ_CHECK(report.rfind("ERROR DETECTED", 0) == 0, report);
  });
}

// The driver's steps before the first matrix load, on the parsed options.
void RunDriverUpToLoading() {
  options::flogfilename = nullptr;
  const LoggingOptions o = ProgramLoggingOptions();
  const bool checked = StepSucceeds([&] {
    logging::SetUpLogging(o.levels, o.console_level, o.timestamps, o.concise, nullptr,
                          o.file_level);
    CheckOptionsBeforeLoading();
  });
  VELMOR_FUZZ_CHECK(!checked || SomeFunctionGroupGiven(), "checks passed without a function");
  logging::SetUpLogging("off", "off", false, true, nullptr, nullptr);
}

}  // namespace

int FuzzCommandLine(const uint8_t* data, std::size_t size) {
  InputBytes input(data, size);
  std::vector<std::string> arguments{"quillo"};
  while (!input.Empty() && arguments.size() < kMostArguments) arguments.push_back(input.UntilNul());
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    if (arguments[i][0] != '-' || !MayNameArgumentsFile(arguments[i].c_str() + 1)) continue;
    if (i + 1 < arguments.size()) {
      arguments[++i] = ArgumentsFile();
    } else {
      arguments.pop_back();
    }
  }
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);

  std::vector<ArgumentRecord> table = FreshProgramTable();
  ArgumentParser parser(table.data());
  const int status = parser.WalkCommandLine(static_cast<int>(arguments.size()), argv.data());
  VELMOR_FUZZ_CHECK(status == ArgumentParser::kOk || status == ArgumentParser::kMissingRequired ||
                        status == ArgumentParser::kError,
                    "status " + std::to_string(status));
  parser.CheckRequired(true);
  for (std::size_t row = 0; row + 1 < table.size(); ++row) {
    if (table[row].kind == ArgumentRecord::kHelp && table[row].seen_count > 0) {
      parser.PrintUsage(nullptr, false);
      return 0;
    }
  }
  if (status == ArgumentParser::kOk) RunDriverUpToLoading();
  return 0;
}

}  // namespace velmor::fuzz

VELMOR_FUZZ_ENTRY_POINT(velmor::fuzz::FuzzCommandLine)
