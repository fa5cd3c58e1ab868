#ifndef VELMOR_TESTS_COMMAND_LINE_UTILS_CHILD_PROCESS_H_
#define VELMOR_TESTS_COMMAND_LINE_UTILS_CHILD_PROCESS_H_

// Runs a piece of code in a forked child with its standard output and error
// going to files, for code that ends the process or changes global state.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace velmor::testing_support {

struct ChildOutcome {
  bool exited = false;  // ended by exit (else by a signal)
  int status = -1;      // exit status, or the signal number
  std::string out;
  std::string err;
};

inline std::string ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// A fresh directory below the test temp directory.
inline std::string MakeTemporaryDirectory() {
  std::string pattern = ::testing::TempDir() + "velmor_cli_XXXXXX";
  char* made = ::mkdtemp(pattern.data());
  if (made == nullptr) std::abort();
  return pattern;
}

// `body` returns the child's exit status unless it ends the process itself.
template <typename Body>
ChildOutcome RunInChild(Body body) {
  const std::string dir = MakeTemporaryDirectory();
  const std::string out_path = dir + "/out", err_path = dir + "/err";
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    if (!std::freopen(out_path.c_str(), "w", stdout) ||
        !std::freopen(err_path.c_str(), "w", stderr)) {
      ::_exit(120);
    }
    const int status = body();
    std::fflush(nullptr);
    ::_exit(status);
  }
  ChildOutcome outcome;
  int wait_status = 0;
  if (pid < 0 || ::waitpid(pid, &wait_status, 0) != pid) {
    ADD_FAILURE() << "fork/wait failed";
    return outcome;
  }
  outcome.exited = WIFEXITED(wait_status);
  outcome.status = outcome.exited ? WEXITSTATUS(wait_status) : WTERMSIG(wait_status);
  outcome.out = ReadWholeFile(out_path);
  outcome.err = ReadWholeFile(err_path);
  std::remove(out_path.c_str());
  std::remove(err_path.c_str());
  ::rmdir(dir.c_str());
  return outcome;
}

}  // namespace velmor::testing_support

#endif  // VELMOR_TESTS_COMMAND_LINE_UTILS_CHILD_PROCESS_H_
