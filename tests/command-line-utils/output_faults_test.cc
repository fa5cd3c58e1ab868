// quillo's output files under faults: a run killed at any moment leaves each
// output as it was or complete, and a full device or filesystem ends the run
// with status 1 and the system's message (the plot script's only reported).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "io/DenseNumpyFileIOSupport.h"
#include "support/child_process.h"
#include "support/temp_files.h"

namespace velmor {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;

// Every output a run writes, large ones included.
const std::vector<std::string> kOutputs = {"saved.csv", "order.csv", "gains.npy", "both.txt",
                                           "plot.py"};

class OutputFaults : public ::testing::Test {
 protected:
  void SetUp() override {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    dir_ = temp_.path();
    // A similarity matrix of 700 elements; saved as CSV it is about 6 MB.
    matrixio::DenseMatrix<float> similarity(700, 700);
    std::mt19937 engine(3);
    for (Eigen::Index i = 0; i < similarity.size(); ++i) {
      similarity.data()[i] = std::uniform_real_distribution<float>(0.0f, 1.0f)(engine);
    }
    matrixio::WriteMatrixToNumpyFile<float>(Path("sim.npy"), similarity, false);
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string Path(const std::string& name) const { return dir_ + "/" + name; }

  // Starts quillo in the folder, in a process group of its own.
  pid_t Start(const std::string& options) const {
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::setpgid(0, 0);
      const std::string command =
          "exec '" + std::string(VELMOR_TEST_QUILLO) + "' " + options + " > log.txt 2>&1";
      if (::chdir(dir_.c_str()) != 0) ::_exit(99);
      ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
      ::_exit(99);
    }
    return pid;
  }

  // Waits for the program and for every process of its group; the exit
  // status, or -1 when it did not exit.
  // This process adopts the worker when the supervisor dies first, and reaps it.
  static int Finish(pid_t pid) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    // Up to a minute: a sanitized worker ending under load can take seconds.
    for (int i = 0; i < 6000 && ::kill(-pid, 0) == 0; ++i) {
      int ignored = 0;
      if (::waitpid(-pid, &ignored, WNOHANG) <= 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
    }
    EXPECT_NE(::kill(-pid, 0), 0) << "a process of the run outlived it";
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  int Run(const std::string& options) const { return Finish(Start(options)); }
  std::string Log() const { return ReadFile(Path("log.txt")); }

  // Entries of the folder that start with a dot: unfinished temporary files.
  int HiddenEntries(const std::string& folder) const {
    int count = 0;
    for (const auto& entry : fs::directory_iterator(folder)) {
      count += entry.path().filename().string()[0] == '.';
    }
    return count;
  }

  testing::TempDir temp_;
  std::string dir_;
};

const char* kLargeRun =
    "-flfilename sim.npy -sumsize 700 -greedyalgorithm accelerated "
    "-flsavefinaltransformedmatrix saved.csv -outfilesummary order.csv -outfilegains gains.npy "
    "-outasciiresultsfilename both.txt -pgpyplotfilename plot.py";

TEST_F(OutputFaults, KilledRunsLeaveEveryOutputOldOrComplete) {
  // The complete outputs, and how long a run takes.
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_EQ(Run(kLargeRun), 0) << Log();
  const auto duration = std::chrono::steady_clock::now() - begin;
  std::map<std::string, std::string> complete;
  for (const std::string& name : kOutputs) complete[name] = ReadFile(Path(name));
  ASSERT_GT(complete["saved.csv"].size(), std::size_t{1} << 20);

  std::mt19937 engine(11);
  std::uniform_int_distribution<long> moment(
      0, std::chrono::duration_cast<std::chrono::microseconds>(duration).count() * 6 / 5);
  for (const int signal_number : {SIGTERM, SIGKILL}) {
    for (int attempt = 0; attempt < 6; ++attempt) {
      const long delay = moment(engine);
      SCOPED_TRACE(std::string(signal_number == SIGTERM ? "SIGTERM" : "SIGKILL") + " after " +
                   std::to_string(delay) + " us");
      for (const std::string& name : kOutputs) std::ofstream(Path(name)) << "old\n";
      const pid_t pid = Start(kLargeRun);
      std::this_thread::sleep_for(std::chrono::microseconds(delay));
      // SIGTERM goes to the supervisor, which passes it on; SIGKILL to all.
      ::kill(signal_number == SIGTERM ? pid : -pid, signal_number);
      Finish(pid);
      for (const std::string& name : kOutputs) {
        const std::string text = ReadFile(Path(name));
        EXPECT_TRUE(text == "old\n" || text == complete[name])
            << name << " is neither old nor complete (" << text.size() << " bytes)";
      }
      // A terminated run removes its unfinished files; a killed one cannot.
      if (signal_number == SIGTERM) {
        EXPECT_EQ(HiddenEntries(dir_), 0);
      }
      for (const auto& entry : fs::directory_iterator(dir_)) {
        if (entry.path().filename().string()[0] == '.') fs::remove(entry.path());
      }
    }
  }
}

TEST_F(OutputFaults, AFullDeviceEndsTheRunWithStatus1) {
  // Names with the writers' extensions for the full device.
  fs::create_symlink("/dev/full", Path("full.csv"));
  fs::create_symlink("/dev/full", Path("full.npy"));
  const std::string run = "-flfilename sim.npy -sumsize 3 ";
  for (const std::string option :
       {"-outfilesummary full.csv", "-outfilegains full.npy", "-outasciiresultsfilename full.csv",
        "-flsavefinaltransformedmatrix full.csv"}) {
    SCOPED_TRACE(option);
    EXPECT_EQ(Run(run + option), 1) << Log();
    EXPECT_NE(Log().find("No space left on device"), std::string::npos) << Log();
    EXPECT_NE(Log().find("End of Backtrace."), std::string::npos) << Log();
  }
  // The plot script's failure is told, and the run's other outputs are made.
  EXPECT_EQ(Run(run + "-pgpyplotfilename full.csv -outfilesummary order.csv"), 0) << Log();
  EXPECT_NE(Log().find("Can't write file 'full.csv' for output: No space left on device"),
            std::string::npos)
      << Log();
  const std::string order = ReadFile(Path("order.csv"));
  EXPECT_EQ(std::count(order.begin(), order.end(), '\n'), 3) << order;
}

TEST_F(OutputFaults, AFullFilesystemKeepsTheOldFile) {
  const std::string small = Path("small");
  fs::create_directory(small);
  if (::geteuid() != 0 || ::mount("tmpfs", small.c_str(), "tmpfs", 0, "size=64k") != 0) {
    GTEST_SKIP() << "mounting a small tmpfs needs root";
  }
  std::ofstream(small + "/saved.csv") << "old\n";
  const int status =
      Run("-flfilename sim.npy -sumsize 3 -flsavefinaltransformedmatrix small/saved.csv");
  const std::string left = ReadFile(small + "/saved.csv");
  const int hidden = HiddenEntries(small);
  ::umount(small.c_str());
  EXPECT_EQ(status, 1) << Log();
  EXPECT_NE(Log().find("No space left on device"), std::string::npos) << Log();
  EXPECT_EQ(left, "old\n");
  EXPECT_EQ(hidden, 0);
}

}  // namespace
}  // namespace velmor
