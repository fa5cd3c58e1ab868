#include "utils/signal_handling.h"

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "utils/AtomicOutputFile.h"

namespace velmor {
namespace {

std::atomic<int32_t> SignalUserCounter{0};
static_assert(std::atomic<int32_t>::is_always_lock_free, "the counter is changed in handlers");

// Ends with _exit: the handler may interrupt any thread, even one inside
// the allocator, so neither static destructors nor exit-time hooks may run
// (they could wait for that thread's lock for ever).
[[noreturn]] void WriteAndExit(const char* message) {
  WriteToStandardErrorFromHandler(message);
  RemoveUnfinishedOutputFiles();
  ::_exit(-1);
}

void HandleIllegalInstruction(int) {
  WriteAndExit(
      "Process received SIGILL (illegal instruction), try version without aggressive "
      "optimization (e.g., avx512 opcodes), terminating...\n");
}

void HandleFloatingPointException(int) {
  WriteAndExit("Process received SIGFPE (floating point exception), terminating...\n");
}

void HandleCpuTimeExceeded(int) {
  WriteAndExit("Process received SIGXCPU (maximum CPU time has been exceeded), terminating...\n");
}

void HandleWorkerTerminate(int) { WriteAndExit("Received SIGTERM signal, terminating...\n"); }

void HandleUser1(int) { SignalUserCounter.fetch_add(1, std::memory_order_relaxed); }

void HandleUser2(int) { SignalUserCounter.fetch_sub(1, std::memory_order_relaxed); }

// Supervisor: pass the signal on to the whole group, then end. The signal
// sent to the group reaches this process too but stays blocked while its
// handler runs, so the exit below comes first.
[[noreturn]] void ForwardToGroupAndExit(int signal_number, const char* message) {
  WriteToStandardErrorFromHandler(message);
  if (::killpg(::getpgrp(), signal_number) != 0) {
    char text[256];
    std::snprintf(text, sizeof(text), "Unable to kill process group id: %s\n",
                  std::strerror(errno));
    WriteToStandardErrorFromHandler(text);
  }
  std::exit(-1);
}

void HandleSupervisorTerminate(int) {
  ForwardToGroupAndExit(SIGTERM, "Received SIGTERM, terminating group...\n");
}

void HandleSupervisorInterrupt(int) {
  ForwardToGroupAndExit(SIGINT, "Received SIGINT, terminating group...\n");
}

void InstallOrExit(int signal_number, void (*handler)(int), const char* signal_name) {
  if (std::signal(signal_number, handler) == SIG_ERR) {
    char text[256];
    std::snprintf(text, sizeof(text), "Error: existing due to being unable to catch %s signal: %s.",
                  signal_name, std::strerror(errno));
    WriteAndExit(text);
  }
}

}  // namespace

void WriteToStandardErrorFromHandler(const char* text) {
  std::size_t length = std::strlen(text);
  while (length > 0) {
    const ssize_t written = ::write(STDERR_FILENO, text, length);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text += written;
    length -= static_cast<std::size_t>(written);
  }
}

bool InstallWorkerSignalHandlers() {
  InstallOrExit(SIGILL, &HandleIllegalInstruction, "SIGILL");
  InstallOrExit(SIGFPE, &HandleFloatingPointException, "SIGFPE");
  InstallOrExit(SIGXCPU, &HandleCpuTimeExceeded, "SIGXCPU");
  InstallOrExit(SIGTERM, &HandleWorkerTerminate, "SIGTERM");
  InstallOrExit(SIGUSR1, &HandleUser1, "SIGUSR1");
  InstallOrExit(SIGUSR2, &HandleUser2, "SIGUSR2");
  return true;
}

bool InstallSupervisorSignalHandlers() {
  InstallOrExit(SIGTERM, &HandleSupervisorTerminate, "SIGTERM");
  InstallOrExit(SIGINT, &HandleSupervisorInterrupt, "SIGINT");
  return true;
}

int32_t GetSignalUserCounter() { return SignalUserCounter.load(std::memory_order_relaxed); }

void SplitIntoSupervisorAndWorker() {
  // SIGTERM and SIGINT stay blocked until the parent has its supervisor
  // handlers, so a request that arrives around the fork is forwarded rather
  // than handled by the worker's handler in the parent.
  sigset_t blocked, previous;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  sigaddset(&blocked, SIGINT);
  sigprocmask(SIG_BLOCK, &blocked, &previous);

  const pid_t child = ::fork();
  if (child == 0) {
    sigprocmask(SIG_SETMASK, &previous, nullptr);
    return;
  }
  if (child < 0) {
    std::fprintf(stderr, "Error: unable to fork the worker process: %s.\n", std::strerror(errno));
    std::exit(1);
  }
  InstallSupervisorSignalHandlers();
  sigprocmask(SIG_SETMASK, &previous, nullptr);

  int status = 0;
  for (;;) {
    const pid_t ended = ::wait(&status);
    if (ended == child) break;
    if (ended < 0 && errno != EINTR) {
      std::fprintf(stderr, "Error: lost track of the worker process: %s.\n", std::strerror(errno));
      std::exit(1);
    }
  }
  std::exit((status >> 8) & 0xff);
}

}  // namespace velmor
