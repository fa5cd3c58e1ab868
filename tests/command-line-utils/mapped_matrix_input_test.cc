// Dense facility-location input used in place: the mapping helper against the
// loading helper, and whole runs of the program over a mapped file against
// runs over the same matrix read into memory.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>

#include "command-line-utils/common-command-line-routines.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "tests/command-line-utils/child_process.h"

namespace velmor {
namespace {

using testing_support::MakeTemporaryDirectory;
using testing_support::ReadWholeFile;

// `text` without its "[[@File:line:function]] " location prefixes.
std::string StripLocations(std::string text) {
  for (std::size_t at = text.find("[[@"); at != std::string::npos; at = text.find("[[@", at)) {
    const std::size_t end = text.find("]] ", at);
    if (end == std::string::npos) break;
    text.erase(at, end + 3 - at);
  }
  return text;
}

std::string ChainWithoutLocations(const std::exception& e) {
  std::string text = StripLocations(e.what());
  try {
    std::rethrow_if_nested(e);
  } catch (const std::exception& inner) {
    text += "\n" + ChainWithoutLocations(inner);
  }
  return text;
}

template <typename F>
std::optional<std::string> FailureOf(F&& call) {
  try {
    call();
  } catch (const std::invalid_argument& e) {
    return ChainWithoutLocations(e);
  } catch (const std::exception& e) {
    return "unexpected type: " + ChainWithoutLocations(e);
  }
  return std::nullopt;
}

matrixio::DenseMatrix<float> Similarities(int n) {
  matrixio::DenseMatrix<float> m(n, n);
  unsigned state = 12345;
  for (Eigen::Index i = 0; i < m.size(); ++i) {
    state = state * 1103515245u + 12345u;
    m.data()[i] = static_cast<float>((state >> 8) & 0xffff) / 65536.0f;
  }
  return m;
}

class MappedInput : public ::testing::Test {
 protected:
  void SetUp() override { dir_ = MakeTemporaryDirectory(); }
  void TearDown() override { std::filesystem::remove_all(dir_); }
  std::string Path(const std::string& name) const { return dir_ + "/" + name; }

  std::string dir_;
};

TEST_F(MappedInput, MapsOnlyWhatCanBeUsedInPlaceAndFailsAsTheLoaderFails) {
  const matrixio::DenseMatrix<float> m = Similarities(7);
  matrixio::WriteMatrixToNumpyFile<float>(Path("c.npy"), m, false);
  matrixio::WriteMatrixToNumpyFile<float>(Path("C.NPY"), m, false);
  matrixio::WriteMatrixToNumpyFile<float>(Path("fortran.npy"), m, true);
  matrixio::WriteMatrixToNumpyFile<double>(Path("double.npy"), m.cast<double>(), false);

  // Mapped: our own type in C order, by either spelling of the extension.
  for (const char* name : {"c.npy", "C.NPY"}) {
    std::optional<matrixio::MappedNumpyMatrix<float>> mapped =
        MapNumpyMatrixInPlace<float>("FL", Path(name).c_str());
    ASSERT_TRUE(mapped.has_value()) << name;
    EXPECT_EQ(mapped->rows(), 7);
    EXPECT_TRUE((mapped->ElementMajor().transpose().array() == m.array()).all());
  }
  // Left to the loader: other orders, types and formats, and no file at all.
  EXPECT_FALSE(MapNumpyMatrixInPlace<float>("FL", Path("fortran.npy").c_str()).has_value());
  EXPECT_FALSE(MapNumpyMatrixInPlace<float>("FL", Path("double.npy").c_str()).has_value());
  EXPECT_TRUE(MapNumpyMatrixInPlace<double>("FL", Path("double.npy").c_str()).has_value());
  std::rename(Path("fortran.npy").c_str(), Path("matrix.csv").c_str());
  EXPECT_FALSE(MapNumpyMatrixInPlace<float>("FL", Path("matrix.csv").c_str()).has_value());
  EXPECT_FALSE(MapNumpyMatrixInPlace<float>("FL", nullptr).has_value());

  // Failures: the loader's chain, message for message.
  const std::string bytes = ReadWholeFile(Path("c.npy"));
  const std::string bad = Path("bad.npy");
  auto expect_loader_failure = [&bad](const std::string& what) {
    SCOPED_TRACE(what);
    const std::optional<std::string> loaded =
        FailureOf([&] { LoadAndTransformMatrix<float>("FL", bad.c_str(), 0, 0, ""); });
    const std::optional<std::string> mapped =
        FailureOf([&] { MapNumpyMatrixInPlace<float>("FL", bad.c_str()); });
    ASSERT_TRUE(loaded.has_value() && mapped.has_value());
    EXPECT_EQ(*mapped, *loaded);
    EXPECT_EQ(
        mapped->rfind("Problems loading FL matrix.\nProblems opening file '" + bad + "'.\n", 0), 0u)
        << *mapped;
  };
  expect_loader_failure("missing");
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{9}, std::size_t{50}, bytes.size() - 1}) {
    std::FILE* file = std::fopen(bad.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    std::fwrite(bytes.data(), 1, size, file);
    std::fclose(file);
    expect_loader_failure("truncated to " + std::to_string(size));
  }
}

TEST_F(MappedInput, MappedAndReadInputsGiveTheSameRun) {
  const matrixio::DenseMatrix<float> m = Similarities(60);
  matrixio::WriteMatrixToNumpyFile<float>(Path("c.npy"), m, false);       // mapped
  matrixio::WriteMatrixToNumpyFile<float>(Path("fortran.npy"), m, true);  // read
  for (const std::string options : {"", " -flsoftness 0.05", " -fl-set-contraction 0-3"}) {
    SCOPED_TRACE(options);
    std::string outputs[2];
    for (int read = 0; read < 2; ++read) {
      const std::string input = read ? "fortran.npy" : "c.npy";
      const std::string command =
          "cd '" + dir_ + "' && '" + VELMOR_TEST_QUILLO + "' -flfilename " + input + options +
          " -sumsize 12 -loglevels ctrl=debug -cloglevel debug -outfilesummary order.npy"
          " -outfilegains gains.npy > log.txt 2>&1";
      const int status = std::system(command.c_str());
      const std::string log = ReadWholeFile(Path("log.txt"));
      ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << log;
      EXPECT_EQ(log.find("FL matrix file '" + input + "' mapped into memory.") != std::string::npos,
                !read)
          << log;
      outputs[read] = ReadWholeFile(Path("order.npy")) + ReadWholeFile(Path("gains.npy"));
    }
    EXPECT_EQ(outputs[0], outputs[1]);
  }
}

}  // namespace
}  // namespace velmor
