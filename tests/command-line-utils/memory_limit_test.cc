// quillo under an address-space limit (ulimit -v): a matrix that cannot be
// allocated is reported with status 1, and at every limit from too little to
// enough a run either completes its outputs or reports an error with status
// 1 (a crash of the worker would end with status 0 and no outputs).
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "io/DenseNumpyFileIOSupport.h"
#include "support/child_process.h"
#include "support/temp_files.h"
#include "tests/io/io_test_support.h"

namespace velmor {
namespace {

using testing::ReadFile;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif

class MemoryLimit : public ::testing::Test {
 protected:
  void SetUp() override {
    if (kAddressSanitizer) GTEST_SKIP() << "the address sanitizer needs more address space";
    dir_ = temp_.path();
  }
  void TearDown() override {
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }
  std::string Path(const std::string& name) const { return dir_ + "/" + name; }

  // Runs quillo in the folder under `ulimit -v kib`; returns the exit status
  // (-1 when it did not exit) and leaves its output in log.txt.
  int RunLimited(long kib, const std::string& options) const {
    const std::string command = "cd '" + dir_ + "' && ulimit -v " + std::to_string(kib) + " && '" +
                                VELMOR_TEST_QUILLO + "' " + options + " > log.txt 2>&1";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  testing::TempDir temp_;
  std::string dir_;
};

TEST_F(MemoryLimit, AMatrixThatCannotBeAllocatedIsReportedWithStatus1) {
  // A valid 16384 x 16384 float64 file, stored sparsely: 1 GiB in single
  // precision, more than the 384 MiB the run is given.
  const std::string header =
      matrixio::NpyBytes("{'descr': '<f8', 'fortran_order': False, 'shape': (16384, 16384), }", "");
  testing::WriteFile(Path("big.npy"), header);
  std::filesystem::resize_file(Path("big.npy"), header.size() + (std::size_t{2} << 30));
  EXPECT_EQ(RunLimited(384 << 10, "-flfilename big.npy -sumsize 5 -outfilesummary order.csv"), 1);
  const std::string log = ReadFile(Path("log.txt"));
  EXPECT_NE(log.find("ERROR DETECTED: "), std::string::npos) << log;
  EXPECT_NE(log.find("Unable to allocate matrix of size (rows,cols)=(16384,16384) for reading "
                     "from numpy file."),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("End of Backtrace."), std::string::npos) << log;
  EXPECT_FALSE(std::filesystem::exists(Path("order.csv")));
}

TEST_F(MemoryLimit, EveryLimitGivesCompleteOutputsOrAReportedError) {
  // 1500 items of 64 features: the RBF similarity and its copies take tens
  // of megabytes, so the ladder of limits cuts the run at different steps.
  matrixio::DenseMatrix<float> features(1500, 64);
  for (Eigen::Index i = 0; i < features.size(); ++i) {
    features.data()[i] = static_cast<float>((i * 7919) % 1000) / 1000.0f;
  }
  matrixio::WriteMatrixToNumpyFile<float>(Path("features.npy"), features, false);
  int completed = 0, refused = 0;
  for (long mib = 16; mib <= 128; mib += 16) {
    SCOPED_TRACE("ulimit -v " + std::to_string(mib) + " MiB");
    std::filesystem::remove(Path("order.csv"));
    const int status = RunLimited(mib << 10,
                                  "-flfilename features.npy -fltransformation 'RBF()' -sumsize 20 "
                                  "-outfilesummary order.csv");
    const std::string log = ReadFile(Path("log.txt"));
    if (status == 0 && std::filesystem::exists(Path("order.csv"))) {
      const std::string order = ReadFile(Path("order.csv"));
      EXPECT_EQ(std::count(order.begin(), order.end(), '\n'), 20) << order;
      ++completed;
    } else {
      EXPECT_EQ(status, 1) << log;
      EXPECT_NE(log.find("ERROR DETECTED: "), std::string::npos) << log;
      EXPECT_NE(log.find("End of Backtrace."), std::string::npos) << log;
      ++refused;
    }
  }
  // The ladder spans both outcomes.
  EXPECT_GT(completed, 0);
  EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace velmor
