#include "utils/signal_handling.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace velmor {
namespace {

struct Outcome {
  bool exited = false;
  int status = -1;  // exit status or signal number
  std::string err;
};

std::string ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Forks; the child gets its own process group (so that group-wide signals stay
// inside the test), its standard error in a file, and runs `body`, whose
// return value becomes its exit status. `started` runs in the test process
// with the child's pid.
template <typename Body, typename Started>
Outcome RunGroupLeader(Body body, Started started) {
  std::string err_path = ::testing::TempDir() + "velmor_signal_XXXXXX";
  const int fd = ::mkstemp(err_path.data());
  if (fd < 0) std::abort();
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::setpgid(0, 0);
    ::dup2(fd, STDERR_FILENO);
    ::_exit(body());
  }
  ::close(fd);
  started(pid);
  Outcome outcome;
  int wait_status = 0;
  EXPECT_EQ(::waitpid(pid, &wait_status, 0), pid);
  outcome.exited = WIFEXITED(wait_status);
  outcome.status = outcome.exited ? WEXITSTATUS(wait_status) : WTERMSIG(wait_status);
  outcome.err = ReadWholeFile(err_path);
  std::remove(err_path.c_str());
  return outcome;
}

template <typename Body>
Outcome RunGroupLeader(Body body) {
  return RunGroupLeader(body, [](pid_t) {});
}

// Whether `pid` has a handler for `signal_number` (SigCgt in /proc).
bool CatchesSignal(pid_t pid, int signal_number) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("SigCgt:", 0) == 0) {
      const unsigned long long mask = std::strtoull(line.c_str() + 7, nullptr, 16);
      return (mask >> (signal_number - 1)) & 1ull;
    }
  }
  return false;
}

// True once `pid` is gone or a zombie.
bool HasEnded(pid_t pid) {
  if (::kill(pid, 0) != 0 && errno == ESRCH) return true;
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(stat, text);
  const std::size_t close = text.rfind(')');
  return close == std::string::npos || (close + 2 < text.size() && text[close + 2] == 'Z');
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
    Outcome raised = RunGroupLeader([signal_number = signal_number] {
      InstallWorkerSignalHandlers();
      std::raise(signal_number);
      return 0;
    });
    EXPECT_TRUE(raised.exited);
    EXPECT_EQ(raised.status, 255);
    EXPECT_EQ(raised.err, message);
  }
  // Sent from outside while the worker waits.
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  Outcome sent = RunGroupLeader(
      [&] {
        InstallWorkerSignalHandlers();
        const char byte = 'r';
        if (::write(ready[1], &byte, 1) != 1) return 1;
        for (;;) ::pause();
      },
      [&](pid_t pid) {
        char byte = 0;
        ASSERT_EQ(::read(ready[0], &byte, 1), 1);
        ::kill(pid, SIGTERM);
      });
  ::close(ready[0]);
  ::close(ready[1]);
  EXPECT_TRUE(sent.exited);
  EXPECT_EQ(sent.status, 255);
  EXPECT_EQ(sent.err, "Received SIGTERM signal, terminating...\n");
}

TEST(SignalHandling, UserSignalsMoveTheCounter) {
  Outcome o = RunGroupLeader([] {
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
    Outcome o = RunGroupLeader([code] {
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
  Outcome terminated = RunGroupLeader([] {
    InstallWorkerSignalHandlers();
    SplitIntoSupervisorAndWorker();
    std::raise(SIGTERM);
    return 0;
  });
  EXPECT_TRUE(terminated.exited);
  EXPECT_EQ(terminated.status, 255);
  EXPECT_EQ(terminated.err, "Received SIGTERM signal, terminating...\n");
  // A worker killed by a signal without handler leaves status byte 0.
  Outcome killed = RunGroupLeader([] {
    InstallWorkerSignalHandlers();
    SplitIntoSupervisorAndWorker();
    std::raise(SIGKILL);
    return 9;
  });
  EXPECT_TRUE(killed.exited);
  EXPECT_EQ(killed.status, 0);
  EXPECT_EQ(killed.err, "");
  // Only the worker returns from the split.
  Outcome returns = RunGroupLeader([] {
    const pid_t before = ::getpid();
    SplitIntoSupervisorAndWorker();
    return ::getpid() != before ? 21 : 22;
  });
  EXPECT_EQ(returns.status, 21);
}

TEST(SignalHandling, SupervisorForwardsToTheGroup) {
  // SIGINT (as typed at a terminal) or SIGTERM to the supervisor: the worker
  // dies by SIGINT's default action or through its own SIGTERM handler, and
  // the supervisor exits with 255.
  const std::pair<int, std::string> cases[] = {
      {SIGINT, "Received SIGINT, terminating group...\n"},
      {SIGTERM, "Received SIGTERM, terminating group...\n"},
  };
  for (const auto& [signal_number, message] : cases) {
    SCOPED_TRACE(signal_number);
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    pid_t worker = 0, leader = 0;
    Outcome o = RunGroupLeader(
        [&] {
          InstallWorkerSignalHandlers();
          SplitIntoSupervisorAndWorker();
          const pid_t self = ::getpid();
          if (::write(ready[1], &self, sizeof(self)) != sizeof(self)) return 1;
          for (;;) ::pause();
        },
        [&](pid_t supervisor) {
          leader = supervisor;
          EXPECT_EQ(::read(ready[0], &worker, sizeof(worker)),
                    static_cast<ssize_t>(sizeof(worker)));
          // Wait until the supervisor has its handlers (bounded).
          for (int tries = 0; tries < 10000 && !CatchesSignal(supervisor, SIGINT); ++tries) {
            ::usleep(1000);
          }
          EXPECT_TRUE(CatchesSignal(supervisor, SIGINT));
          ::kill(supervisor, signal_number);
          // The worker is gone too (it may linger briefly until reaped); its
          // message is written before it ends, so wait for that before the
          // standard error file is read.
          bool ended = false;
          for (int tries = 0; tries < 10000 && !(ended = HasEnded(worker)); ++tries) ::usleep(1000);
          EXPECT_TRUE(ended);
        });
    ::kill(-leader, SIGKILL);  // nothing should be left; clean up if something is
    ::close(ready[0]);
    ::close(ready[1]);
    EXPECT_TRUE(o.exited);
    EXPECT_EQ(o.status, 255);
    EXPECT_NE(o.err.find(message), std::string::npos) << o.err;
    if (signal_number == SIGTERM) {
      EXPECT_NE(o.err.find("Received SIGTERM signal, terminating...\n"), std::string::npos)
          << o.err;
    }
  }
}

}  // namespace
}  // namespace velmor
