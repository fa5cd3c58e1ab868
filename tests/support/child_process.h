#ifndef VELMOR_TESTS_SUPPORT_CHILD_PROCESS_H_
#define VELMOR_TESTS_SUPPORT_CHILD_PROCESS_H_

// Runs code in a forked child with its standard output and error going to
// files: for code that ends the process, installs signal handlers or changes
// global state, and for running programs.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

#include "support/temp_files.h"

namespace velmor::testing {

struct ChildOutcome {
  bool exited = false;  // ended by exit (else by a signal)
  int status = -1;      // exit status, or the signal number
  std::string out;
  std::string err;
};

inline std::ostream& operator<<(std::ostream& os, const ChildOutcome& o) {
  return os << (o.exited ? "status " : "signal ") << o.status << "\n--- stdout\n"
            << o.out << "--- stderr\n"
            << o.err;
}

struct ChildOptions {
  // The child leads a process group of its own, so group-wide signals stay inside.
  bool own_group = false;
  // Runs in the test process with the child's pid while the child runs.
  std::function<void(pid_t)> started;
};

// `body` returns the child's exit status unless it ends the process itself.
template <typename Body>
ChildOutcome RunInChild(Body body, const ChildOptions& options = {}) {
  const TempDir dir;
  const std::string out_path = dir.File("out"), err_path = dir.File("err");
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    if (options.own_group) ::setpgid(0, 0);
    if (!std::freopen(out_path.c_str(), "w", stdout) ||
        !std::freopen(err_path.c_str(), "w", stderr)) {
      ::_exit(120);
    }
    const int status = body();
    std::fflush(nullptr);
    ::_exit(status);
  }
  ChildOutcome outcome;
  if (pid < 0) {
    ADD_FAILURE() << "fork failed";
    return outcome;
  }
  if (options.started) options.started(pid);
  int wait_status = 0;
  if (::waitpid(pid, &wait_status, 0) != pid) ADD_FAILURE() << "wait failed";
  outcome.exited = WIFEXITED(wait_status);
  outcome.status = outcome.exited ? WEXITSTATUS(wait_status) : WTERMSIG(wait_status);
  outcome.out = ReadFile(out_path);
  outcome.err = ReadFile(err_path);
  return outcome;
}

// Runs a shell command line in `directory`.
inline ChildOutcome RunCommand(const std::string& directory, const std::string& command,
                               const ChildOptions& options = {}) {
  return RunInChild(
      [&] {
        if (::chdir(directory.c_str()) != 0) return 121;
        ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        return 122;
      },
      options);
}

}  // namespace velmor::testing

#endif  // VELMOR_TESTS_SUPPORT_CHILD_PROCESS_H_
