#include "utils/logging.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/located_messages.h"

namespace velmor::logging {
namespace {

// The body runs in a child whose standard output and error are captured, so
// the console sink's split can be observed from outside.
template <typename Body>
testing::ChildOutcome RunInChild(Body body) {
  return testing::RunInChild([&] {
    body();
    return 0;
  });
}

TEST(Logging, ConsoleSplitsBySeverity) {
  const testing::ChildOutcome run = RunInChild([] {
    SetUpLogging("trace", "trace", false, true, nullptr, nullptr);
    GetLogger("ctrl")->info("info line");
    GetLogger("optm")->error("error line");
    GetLogger("mtvc")->warn("warning line");
    GetLogger("mxfm")->critical("critical line");
  });
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "info line\nwarning line\n");
  EXPECT_EQ(run.err, "error line\ncritical line\n");
}

TEST(Logging, PatternsAndDefaultLevels) {
  // Default levels: ctrl at info, the others at warning; the console shows warning and above.
  const testing::ChildOutcome defaults = RunInChild([] {
    SetUpLogging(nullptr, "info", false, false, nullptr, nullptr);
    GetLogger("ctrl")->info("shown");
    GetLogger("optm")->info("hidden");
    GetLogger("optm")->warn("warned");
  });
  EXPECT_EQ(defaults.out, "[ctrl,info] shown\n[optm,warning] warned\n");

  // The environment's levels are applied first and then replaced by the default list.
  const testing::ChildOutcome environment = RunInChild([] {
    setenv("VELMOR_LOG_LEVELS", "debug", 1);
    SetUpLogging(nullptr, "trace", false, true, nullptr, nullptr);
    GetLogger("optm")->debug("debug hidden");
    GetLogger("ctrl")->debug("debug hidden too");
    GetLogger("ctrl")->info("info shown");
  });
  EXPECT_EQ(environment.out, "info shown\n");

  // The option list sets every logger: one it does not name is at info,
  // whatever the environment said.
  const testing::ChildOutcome partial = RunInChild([] {
    setenv("VELMOR_LOG_LEVELS", "mtvc=debug", 1);
    SetUpLogging("ctrl=warn", "trace", false, true, nullptr, nullptr);
    GetLogger("mtvc")->debug("mtvc debug hidden");
    GetLogger("mtvc")->info("mtvc info");
    GetLogger("ctrl")->info("ctrl info hidden");
  });
  EXPECT_EQ(partial.out, "mtvc info\n");
}

TEST(Logging, FileSinkAndConsoleOff) {
  const testing::TempDir dir;
  const std::string file = dir.File("velmor.log");
  const testing::ChildOutcome run = RunInChild([&] {
    SetUpLogging("info", "off", true, true, file.c_str(), nullptr);
    GetLogger("optm")->info("to the file");
    GetLogger("ctrl")->error("error to the file");
    spdlog::shutdown();
  });
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "");
  const std::string logged = testing::ReadFile(file);
  EXPECT_NE(logged.find("] [optm] [info] to the file\n"), std::string::npos) << logged;
  EXPECT_NE(logged.find("] [ctrl] [error] error to the file\n"), std::string::npos) << logged;
}

TEST(Logging, Errors) {
  const testing::ChildOutcome run = RunInChild([] {
    for (const auto& call : std::vector<std::function<void()>>{
             [] { SetUpLogging(nullptr, "loud", false, true, nullptr, nullptr); },
             [] { SetUpLogging(nullptr, "info", false, true, "/tmp/x.log", "quiet"); },
             [] {
               spdlog::drop_all();
               GetLogger("ctrl");
             }}) {
      std::printf("%s\n", testing::FailureOf(call).value_or("nothing thrown").c_str());
    }
  });
  EXPECT_EQ(run.out,
            "Unknown console level given.\nUnknown logfile level given.\n"
            "Unable to find ctrl logger.\n");
}

}  // namespace
}  // namespace velmor::logging
