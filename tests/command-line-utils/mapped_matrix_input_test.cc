// Dense facility-location input used in place: the mapping helper against the
// loading helper, and whole runs of the program over a mapped file against
// runs over the same matrix read into memory.
#include <gtest/gtest.h>

#include <cstdio>
#include <optional>
#include <string>

#include "command-line-utils/common-command-line-routines.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "support/child_process.h"
#include "support/located_messages.h"
#include "support/temp_files.h"

namespace velmor {
namespace {

using testing::FailureOf;

matrixio::DenseMatrix<float> Similarities(int n) {
  matrixio::DenseMatrix<float> m(n, n);
  unsigned state = 12345;
  for (Eigen::Index i = 0; i < m.size(); ++i) {
    state = state * 1103515245u + 12345u;
    m.data()[i] = static_cast<float>((state >> 8) & 0xffff) / 65536.0f;
  }
  return m;
}

TEST(MappedInput, MapsOnlyWhatCanBeUsedInPlaceAndFailsAsTheLoaderFails) {
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

  // Failures: the loader's chain, message for message; missing, and truncated.
  const std::string bytes = testing::ReadFile(dir.File("c.npy"));
  const std::string bad = dir.File("bad.npy");
  for (const long size : {-1L, 0L, 9L, 50L, static_cast<long>(bytes.size()) - 1}) {
    SCOPED_TRACE(size);  // -1: no file
    if (size >= 0) testing::WriteFile(bad, bytes.substr(0, static_cast<std::size_t>(size)));
    const std::optional<std::string> loaded =
        FailureOf([&] { LoadAndTransformMatrix<float>("FL", bad.c_str(), 0, 0, ""); });
    const std::optional<std::string> mapped =
        FailureOf([&] { MapNumpyMatrixInPlace<float>("FL", bad.c_str()); });
    ASSERT_TRUE(loaded.has_value() && mapped.has_value());
    EXPECT_EQ(*mapped, *loaded);
    EXPECT_EQ(
        mapped->rfind("Problems loading FL matrix.\nProblems opening file '" + bad + "'.\n", 0), 0u)
        << *mapped;
  }
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
