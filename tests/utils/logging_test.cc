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

// Runs `body` in a child, so the console sink's split can be seen from outside.
template <typename Body>
testing::ChildOutcome Logged(Body body) {
  return testing::RunInChild([&] {
    body();
    return 0;
  });
}

TEST(Logging, ConsoleSplitsBySeverityAndLevelsComeFromDefaultsEnvironmentAndOptions) {
  const testing::ChildOutcome split = Logged([] {
    SetUpLogging("trace", "trace", false, true, nullptr, nullptr);
    GetLogger("ctrl")->info("info line");
    GetLogger("optm")->error("error line");
    GetLogger("mtvc")->warn("warning line");
    GetLogger("mxfm")->critical("critical line");
  });
  EXPECT_EQ(split.out, "info line\nwarning line\n");
  EXPECT_EQ(split.err, "error line\ncritical line\n");
  // Default levels: ctrl at info, the others at warning, with the pattern.
  EXPECT_EQ(Logged([] {
              SetUpLogging(nullptr, "info", false, false, nullptr, nullptr);
              GetLogger("ctrl")->info("shown");
              GetLogger("optm")->info("hidden");
              GetLogger("optm")->warn("warned");
            }).out,
            "[ctrl,info] shown\n[optm,warning] warned\n");
  // The environment's levels are applied first and then replaced by the default list.
  EXPECT_EQ(Logged([] {
              setenv("VELMOR_LOG_LEVELS", "debug", 1);
              SetUpLogging(nullptr, "trace", false, true, nullptr, nullptr);
              GetLogger("optm")->debug("debug hidden");
              GetLogger("ctrl")->debug("debug hidden too");
              GetLogger("ctrl")->info("info shown");
            }).out,
            "info shown\n");
  // The option list sets every logger: one it does not name is at info.
  EXPECT_EQ(Logged([] {
              setenv("VELMOR_LOG_LEVELS", "mtvc=debug", 1);
              SetUpLogging("ctrl=warn", "trace", false, true, nullptr, nullptr);
              GetLogger("mtvc")->debug("mtvc debug hidden");
              GetLogger("mtvc")->info("mtvc info");
              GetLogger("ctrl")->info("ctrl info hidden");
            }).out,
            "mtvc info\n");
}

TEST(Logging, FileSinkConsoleOffAndErrors) {
  const testing::TempDir dir;
  const std::string file = dir.File("velmor.log");
  const testing::ChildOutcome run = Logged([&] {
    SetUpLogging("info", "off", true, true, file.c_str(), nullptr);
    GetLogger("optm")->info("to the file");
    GetLogger("ctrl")->error("error to the file");
    spdlog::shutdown();
  });
  EXPECT_EQ(run.out + run.err, "");
  const std::string logged = testing::ReadFile(file);
  EXPECT_NE(logged.find("] [optm] [info] to the file\n"), std::string::npos) << logged;
  EXPECT_NE(logged.find("] [ctrl] [error] error to the file\n"), std::string::npos) << logged;
  EXPECT_EQ(Logged([] {
              for (const auto& call : std::vector<std::function<void()>>{
                       [] { SetUpLogging(nullptr, "loud", false, true, nullptr, nullptr); },
                       [] { SetUpLogging(nullptr, "info", false, true, "/tmp/x.log", "quiet"); },
                       [] {
                         spdlog::drop_all();
                         GetLogger("ctrl");
                       }}) {
                std::printf("%s\n", testing::FailureOf(call).value_or("nothing thrown").c_str());
              }
            }).out,
            "Unknown console level given.\nUnknown logfile level given.\n"
            "Unable to find ctrl logger.\n");
}

}  // namespace
}  // namespace velmor::logging
