// Dense facility-location input used in place: what the mapping helper maps,
// and whole runs of the program over a mapped file against
// runs over the same matrix read into memory.
#include <gtest/gtest.h>

#include <cstdio>
#include <optional>
#include <string>

#include "command-line-utils/common-command-line-routines.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "support/child_process.h"
#include "support/temp_files.h"

namespace velmor {
namespace {

matrixio::DenseMatrix<float> Similarities(int n) {
  matrixio::DenseMatrix<float> m(n, n);
  unsigned state = 12345;
  for (Eigen::Index i = 0; i < m.size(); ++i) {
    state = state * 1103515245u + 12345u;
    m.data()[i] = static_cast<float>((state >> 8) & 0xffff) / 65536.0f;
  }
  return m;
}

TEST(MappedInput, MapsOnlyWhatCanBeUsedInPlace) {
  const testing::TempDir dir;
  const matrixio::DenseMatrix<float> m = Similarities(7);
  matrixio::WriteMatrixToNumpyFile<float>(dir.File("c.npy"), m, false);
  matrixio::WriteMatrixToNumpyFile<float>(dir.File("C.NPY"), m, false);
  matrixio::WriteMatrixToNumpyFile<float>(dir.File("fortran.npy"), m, true);
  matrixio::WriteMatrixToNumpyFile<double>(dir.File("double.npy"), m.cast<double>(), false);

  // Mapped: our own type in C order, by either spelling of the extension.
  for (const char* name : {"c.npy", "C.NPY"}) {
    std::optional<matrixio::MappedNumpyMatrix<float>> mapped =
        MapNumpyMatrixInPlace<float>("FL", dir.File(name).c_str());
    ASSERT_TRUE(mapped.has_value()) << name;
    EXPECT_TRUE((mapped->ElementMajor().transpose().array() == m.array()).all());
  }
  // Left to the loader: other orders, types and formats, and no file at all.
  EXPECT_FALSE(MapNumpyMatrixInPlace<float>("FL", dir.File("fortran.npy").c_str()).has_value());
  EXPECT_FALSE(MapNumpyMatrixInPlace<float>("FL", dir.File("double.npy").c_str()).has_value());
  EXPECT_TRUE(MapNumpyMatrixInPlace<double>("FL", dir.File("double.npy").c_str()).has_value());
  std::rename(dir.File("fortran.npy").c_str(), dir.File("matrix.csv").c_str());
  EXPECT_FALSE(MapNumpyMatrixInPlace<float>("FL", dir.File("matrix.csv").c_str()).has_value());
  EXPECT_FALSE(MapNumpyMatrixInPlace<float>("FL", nullptr).has_value());

  // Failures: the mapping's against the reader's are checked in the io tests,
  // the program's reports for both paths end to end.
}

TEST(MappedInput, MappedAndReadInputsGiveTheSameRun) {
  const testing::TempDir dir;
  const matrixio::DenseMatrix<float> m = Similarities(60);
  matrixio::WriteMatrixToNumpyFile<float>(dir.File("c.npy"), m, false);       // mapped
  matrixio::WriteMatrixToNumpyFile<float>(dir.File("fortran.npy"), m, true);  // read
  for (const std::string options : {"", " -flsoftness 0.05", " -fl-set-contraction 0-3"}) {
    SCOPED_TRACE(options);
    std::string outputs[2];
    for (int read = 0; read < 2; ++read) {
      const std::string input = read ? "fortran.npy" : "c.npy";
      const testing::ChildOutcome run = testing::RunCommand(
          dir.path(), std::string("'") + VELMOR_TEST_QUILLO + "' -flfilename " + input + options +
                          " -sumsize 12 -loglevels ctrl=debug -cloglevel debug"
                          " -outfilesummary order.npy -outfilegains gains.npy");
      ASSERT_TRUE(run.exited && run.status == 0) << run;
      EXPECT_EQ((run.out + run.err).find("FL matrix file '" + input + "' mapped into memory.") !=
                    std::string::npos,
                !read)
          << run;
      outputs[read] =
          testing::ReadFile(dir.File("order.npy")) + testing::ReadFile(dir.File("gains.npy"));
    }
    EXPECT_EQ(outputs[0], outputs[1]);
  }
}

}  // namespace
}  // namespace velmor
