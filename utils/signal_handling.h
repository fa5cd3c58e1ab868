#ifndef VELMOR_UTILS_SIGNAL_HANDLING_H_
#define VELMOR_UTILS_SIGNAL_HANDLING_H_

// Signal handling of the program's two processes. The program forks at once:
// the parent only supervises (it forwards SIGTERM and SIGINT to the whole
// process group and exits with the child's status), the child does the work.
// Handlers use the plain signal() interface, write with unbuffered write()s to
// standard error, and end the process with status -1, i.e. 255 (the worker's
// handlers with _exit, which is safe whatever the interrupted threads hold).
//
// Worker set (meant to be installed during static initialization, so that
// both processes inherit it):
//   SIGILL, SIGFPE, SIGXCPU, SIGTERM   message, unfinished output files
//                                      removed, exit status 255
//   SIGUSR1 / SIGUSR2                  SignalUserCounter +1 / -1, go on
// Supervisor set (parent only, replaces the worker's SIGTERM handler):
//   SIGTERM, SIGINT   message, the same signal to the own process group,
//                     exit status 255

#include <cstdint>

namespace velmor {

// Installs the worker set in the order above. Returns true; when a handler
// cannot be installed, writes "Error: existing due to being unable to catch
// <SIGNAL> signal: <system error>." and ends the process with status 255
// (the handlers before it stay installed).
bool InstallWorkerSignalHandlers();

// Installs the supervisor set (SIGTERM, then SIGINT); same conventions.
bool InstallSupervisorSignalHandlers();

// Writes `text` to standard error with unbuffered write()s, retrying after
// interruptions; safe inside a signal handler (stdio may hold its own buffer).
void WriteToStandardErrorFromHandler(const char* text);

// The SIGUSR1/SIGUSR2 counter (starts at 0). A hook for run-time adjustment.
int32_t GetSignalUserCounter();

// Forks the process. Returns in the child (the worker) only. The parent
// installs the supervisor set, waits for the child and exits with the child's
// exit-status byte, so a child that ends by an unhandled signal gives 0. A
// failed fork prints "Error: unable to fork the worker process: <system
// error>." and exits with status 1.
void SplitIntoSupervisorAndWorker();

}  // namespace velmor

#endif  // VELMOR_UTILS_SIGNAL_HANDLING_H_
