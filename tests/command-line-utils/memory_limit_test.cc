// quillo under an address-space limit (ulimit -v): a matrix that cannot be
// allocated is reported with status 1, and at every limit from too little to
// enough a run either completes its outputs or reports an error with status
// 1 (a crash of the worker would end with status 0 and no outputs).
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "io/DenseNumpyFileIOSupport.h"
#include "support/temp_files.h"
#include "tests/io/io_test_support.h"

namespace velmor {
namespace {

TEST(MemoryLimit, EveryLimitGivesCompleteOutputsOrAReportedError) {
  if (matrixio::kAddressSanitizer) GTEST_SKIP() << "the address sanitizer needs more address space";
  const testing::TempDir dir;
  // Runs quillo under `ulimit -v kib`: its exit status (-1 when it did not
  // exit), its output and error in log.txt, its order in order.csv if any.
  const auto run_limited = [&dir](long kib, const std::string& options) {
    std::filesystem::remove(dir.File("order.csv"));
    const std::string command = "cd '" + dir.path() + "' && ulimit -v " + std::to_string(kib) +
                                " && '" + VELMOR_TEST_QUILLO + "' " + options +
                                " -outfilesummary order.csv > log.txt 2>&1";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
  const auto log = [&dir] { return testing::ReadFile(dir.File("log.txt")); };
  const auto reported = [&log] {
    EXPECT_NE(log().find("ERROR DETECTED: "), std::string::npos) << log();
    EXPECT_NE(log().find("End of Backtrace."), std::string::npos) << log();
  };

  // A valid 16384 x 16384 float64 file, stored sparsely: 1 GiB in single
  // precision, more than the 384 MiB the run is given.
  const std::string header =
      matrixio::NpyBytes("{'descr': '<f8', 'fortran_order': False, 'shape': (16384, 16384), }", "");
  dir.Write("big.npy", header);
  std::filesystem::resize_file(dir.File("big.npy"), header.size() + (std::size_t{2} << 30));
  EXPECT_EQ(run_limited(384 << 10, "-flfilename big.npy -sumsize 5"), 1);
  reported();
  EXPECT_NE(log().find("Unable to allocate matrix of size (rows,cols)=(16384,16384) for reading "
                       "from numpy file."),
            std::string::npos)
      << log();
  EXPECT_FALSE(std::filesystem::exists(dir.File("order.csv")));

  // 1500 items of 64 features: the RBF similarity and its copies take tens
  // of megabytes, so the ladder of limits cuts the run at different steps.
  matrixio::DenseMatrix<float> features(1500, 64);
  for (Eigen::Index i = 0; i < features.size(); ++i) {
    features.data()[i] = static_cast<float>((i * 7919) % 1000) / 1000.0f;
  }
  matrixio::WriteMatrixToNumpyFile<float>(dir.File("features.npy"), features, false);
  int completed = 0, refused = 0;
  for (long mib = 16; mib <= 128; mib += 16) {
    SCOPED_TRACE("ulimit -v " + std::to_string(mib) + " MiB");
    const int status =
        run_limited(mib << 10, "-flfilename features.npy -fltransformation 'RBF()' -sumsize 20");
    if (status == 0 && std::filesystem::exists(dir.File("order.csv"))) {
      const std::string order = testing::ReadFile(dir.File("order.csv"));
      EXPECT_EQ(std::count(order.begin(), order.end(), '\n'), 20) << order;
      ++completed;
    } else {
      EXPECT_EQ(status, 1) << log();
      reported();
      ++refused;
    }
  }
  // The ladder spans both outcomes.
  EXPECT_GT(completed, 0);
  EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace velmor
