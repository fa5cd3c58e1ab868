#include "utils/signal_handling.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/child_process.h"

namespace velmor {
namespace {

using testing::ChildOutcome;

// The child leads its own process group, so that group-wide signals stay
// inside the test.
template <typename Body>
ChildOutcome RunGroupLeader(Body body) {
  testing::ChildOptions options;
  options.own_group = true;
  return testing::RunInChild(body, options);
}

TEST(SignalHandling, WorkerHandlersEndWithStatus255) {
  const std::pair<int, const char*> cases[] = {
      {SIGTERM, "Received SIGTERM signal, terminating...\n"},
      {SIGFPE, "Process received SIGFPE (floating point exception), terminating...\n"},
      {SIGXCPU, "Process received SIGXCPU (maximum CPU time has been exceeded), terminating...\n"},
      {SIGILL,
       "Process received SIGILL (illegal instruction), try version without aggressive "
       "optimization (e.g., avx512 opcodes), terminating...\n"},
  };
  for (const auto& [signal_number, message] : cases) {
    SCOPED_TRACE(signal_number);
    // Raised by the process itself.
    ChildOutcome raised = RunGroupLeader([signal_number = signal_number] {
      InstallWorkerSignalHandlers();
      std::raise(signal_number);
      return 0;
    });
    EXPECT_TRUE(raised.exited);
    EXPECT_EQ(raised.status, 255);
    EXPECT_EQ(raised.err, message);
  }
}

TEST(SignalHandling, UserSignalsMoveTheCounter) {
  ChildOutcome o = RunGroupLeader([] {
    if (GetSignalUserCounter() != 0) return 1;
    InstallWorkerSignalHandlers();
    for (int i = 0; i < 5; ++i) std::raise(SIGUSR1);
    ::kill(::getpid(), SIGUSR2);
    std::raise(SIGUSR2);
    if (GetSignalUserCounter() != 3) return 2;
    for (int i = 0; i < 10; ++i) std::raise(SIGUSR2);
    return GetSignalUserCounter() == -7 ? 40 : 3;
  });
  EXPECT_TRUE(o.exited);
  EXPECT_EQ(o.status, 40);
  EXPECT_EQ(o.err, "");
}

TEST(SignalHandling, SupervisorExitsWithTheWorkersStatus) {
  // The worker's exit status, 0, 1 or any other byte, becomes the program's.
  for (int code : {0, 1, 7, 254}) {
    ChildOutcome o = RunGroupLeader([code] {
      InstallWorkerSignalHandlers();
      SplitIntoSupervisorAndWorker();
      std::fflush(nullptr);
      ::_exit(code);
      return -1;
    });
    EXPECT_TRUE(o.exited);
    EXPECT_EQ(o.status, code);
  }
  // A worker ended by its SIGTERM handler: message and 255.
  ChildOutcome terminated = RunGroupLeader([] {
    InstallWorkerSignalHandlers();
    SplitIntoSupervisorAndWorker();
    std::raise(SIGTERM);
    return 0;
  });
  EXPECT_TRUE(terminated.exited);
  EXPECT_EQ(terminated.status, 255);
  EXPECT_EQ(terminated.err, "Received SIGTERM signal, terminating...\n");
  // A worker killed by a signal without handler leaves status byte 0.
  ChildOutcome killed = RunGroupLeader([] {
    InstallWorkerSignalHandlers();
    SplitIntoSupervisorAndWorker();
    std::raise(SIGKILL);
    return 9;
  });
  EXPECT_TRUE(killed.exited);
  EXPECT_EQ(killed.status, 0);
  EXPECT_EQ(killed.err, "");
}

}  // namespace
}  // namespace velmor
