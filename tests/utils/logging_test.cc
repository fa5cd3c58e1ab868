#include "utils/logging.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

namespace velmor::logging {
namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

struct Captured {
  std::string out, err;
  int status = -1;
};

// Runs `body` in a child process whose standard output and error go to files,
// so the console sink's split can be observed from outside.
Captured RunInChild(const std::function<void()>& body) {
  const std::string base = ::testing::TempDir() + "/velmor_logging_" + std::to_string(getpid());
  Captured result;
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    if (std::freopen((base + ".out").c_str(), "w", stdout) == nullptr ||
        std::freopen((base + ".err").c_str(), "w", stderr) == nullptr) {
      _exit(3);
    }
    body();
    std::fflush(nullptr);
    _exit(0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.out = ReadFile(base + ".out");
  result.err = ReadFile(base + ".err");
  std::remove((base + ".out").c_str());
  std::remove((base + ".err").c_str());
  return result;
}

TEST(Logging, ConsoleSplitsBySeverity) {
  const Captured run = RunInChild([] {
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
  const Captured defaults = RunInChild([] {
    SetUpLogging(nullptr, "info", false, false, nullptr, nullptr);
    GetLogger("ctrl")->info("shown");
    GetLogger("optm")->info("hidden");
    GetLogger("optm")->warn("warned");
  });
  EXPECT_EQ(defaults.out, "[ctrl,info] shown\n[optm,warning] warned\n");

  // The environment's levels are applied first and then replaced by the default list.
  const Captured environment = RunInChild([] {
    setenv("VELMOR_LOG_LEVELS", "debug", 1);
    SetUpLogging(nullptr, "trace", false, true, nullptr, nullptr);
    GetLogger("optm")->debug("debug hidden");
    GetLogger("ctrl")->debug("debug hidden too");
    GetLogger("ctrl")->info("info shown");
  });
  EXPECT_EQ(environment.out, "info shown\n");

  // The option list sets every logger: one it does not name is at info,
  // whatever the environment said.
  const Captured partial = RunInChild([] {
    setenv("VELMOR_LOG_LEVELS", "mtvc=debug", 1);
    SetUpLogging("ctrl=warn", "trace", false, true, nullptr, nullptr);
    GetLogger("mtvc")->debug("mtvc debug hidden");
    GetLogger("mtvc")->info("mtvc info");
    GetLogger("ctrl")->info("ctrl info hidden");
  });
  EXPECT_EQ(partial.out, "mtvc info\n");
}

TEST(Logging, FileSinkAndConsoleOff) {
  const std::string file = ::testing::TempDir() + "/velmor_logging_file.log";
  const Captured run = RunInChild([&] {
    SetUpLogging("info", "off", true, true, file.c_str(), nullptr);
    GetLogger("optm")->info("to the file");
    GetLogger("ctrl")->error("error to the file");
    spdlog::shutdown();
  });
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "");
  const std::string logged = ReadFile(file);
  EXPECT_NE(logged.find("] [optm] [info] to the file\n"), std::string::npos) << logged;
  EXPECT_NE(logged.find("] [ctrl] [error] error to the file\n"), std::string::npos) << logged;
  std::remove(file.c_str());
}

TEST(Logging, Errors) {
  const auto message_of = [](const std::function<void()>& call) -> std::string {
    try {
      call();
    } catch (const std::exception& e) {
      return e.what();
    }
    return "nothing thrown";
  };
  const Captured run = RunInChild([&] {
    std::printf("%s\n", message_of([] {
                          SetUpLogging(nullptr, "loud", false, true, nullptr, nullptr);
                        }).c_str());
    std::printf("%s\n", message_of([] {
                          SetUpLogging(nullptr, "info", false, true, "/tmp/x.log", "quiet");
                        }).c_str());
    spdlog::drop_all();
    std::printf("%s\n", message_of([] { GetLogger("ctrl"); }).c_str());
  });
  EXPECT_NE(run.out.find(":SetUpLogging]] Unknown console level given.\n"), std::string::npos)
      << run.out;
  EXPECT_NE(run.out.find(":SetUpLogging]] Unknown logfile level given.\n"), std::string::npos)
      << run.out;
  EXPECT_NE(run.out.find(":GetLogger]] Unable to find ctrl logger.\n"), std::string::npos)
      << run.out;
}

}  // namespace
}  // namespace velmor::logging
