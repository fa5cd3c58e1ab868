#include "utils/signal_handling.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <string>

#include "support/child_process.h"

namespace velmor {
namespace {

// Runs `body` in a child that leads its own process group (group-wide
// signals stay inside the test); with `split`, behind a supervisor.
template <typename Body>
testing::ChildOutcome RunWorker(bool split, Body body) {
  testing::ChildOptions options;
  options.own_group = true;
  return testing::RunInChild(
      [&] {
        InstallWorkerSignalHandlers();
        if (split) SplitIntoSupervisorAndWorker();
        return body();
      },
      options);
}

TEST(SignalHandling, HandlersEndWithTheirMessageAndStatus255) {
  const std::pair<int, const char*> cases[] = {
      {SIGTERM, "Received SIGTERM signal, terminating...\n"},
      {SIGFPE, "Process received SIGFPE (floating point exception), terminating...\n"},
      {SIGXCPU, "Process received SIGXCPU (maximum CPU time has been exceeded), terminating...\n"},
      {SIGILL,
       "Process received SIGILL (illegal instruction), try version without aggressive "
       "optimization (e.g., avx512 opcodes), terminating...\n"},
  };
  for (const auto& [signal_number, message] : cases) {
    // Raised by the process itself, and (SIGTERM) by a worker behind its supervisor.
    for (const bool split : {false, signal_number == SIGTERM}) {
      SCOPED_TRACE(std::to_string(signal_number) + (split ? " behind a supervisor" : ""));
      const testing::ChildOutcome o = RunWorker(split, [s = signal_number] {
        std::raise(s);
        return 0;
      });
      EXPECT_TRUE(o.exited && o.status == 255) << o;
      EXPECT_EQ(o.err, message);
    }
  }
}

TEST(SignalHandling, UserSignalsMoveTheCounter) {
  const testing::ChildOutcome o = RunWorker(false, [] {
    if (GetSignalUserCounter() != 0) return 1;
    for (int i = 0; i < 5; ++i) std::raise(SIGUSR1);
    ::kill(::getpid(), SIGUSR2);
    std::raise(SIGUSR2);
    if (GetSignalUserCounter() != 3) return 2;
    for (int i = 0; i < 10; ++i) std::raise(SIGUSR2);
    return GetSignalUserCounter() == -7 ? 40 : 3;
  });
  EXPECT_TRUE(o.exited && o.status == 40 && o.err.empty()) << o;
}

TEST(SignalHandling, SupervisorExitsWithTheWorkersStatus) {
  // The worker's exit status, 0, 1 or any other byte, becomes the program's;
  // a worker killed by a signal without handler leaves status byte 0.
  for (const int code : {0, 1, 7, 254, -SIGKILL}) {
    const testing::ChildOutcome o = RunWorker(true, [code] {
      std::fflush(nullptr);
      if (code < 0) std::raise(-code);
      ::_exit(code);
      return -1;
    });
    EXPECT_TRUE(o.exited && o.status == std::max(code, 0) && o.err.empty()) << code << o;
  }
}

}  // namespace
}  // namespace velmor
