// Failing input and failing resources: the binary reader's messages, shapes claimed beyond what a
// file holds (refused before anything is allocated, seen under an address-space limit), a matrix
// too large for the memory left, and a mapped file truncated while in use.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "io/DenseBinFileIOSupport.h"
#include "io/DenseMatrixIO.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "io/MappedNumpyMatrix.h"
#include "io/SparseCSVFileIOSupport.h"
#include "support/child_process.h"
#include "support/located_messages.h"
#include "support/temp_files.h"
#include "tests/io/io_test_support.h"

namespace velmor::matrixio {
namespace {

using testing::ErrorChain;
using testing::TempDir;

template <typename Call>
void ExpectBinaryReadError(Call call, const std::string& text) {
  try {
    call();
    ADD_FAILURE() << "no failure; wanted: " << text;
  } catch (const std::runtime_error& e) {
    const auto parts = testing::SplitLocated(e.what());
    EXPECT_TRUE(parts && parts->text == text && parts->function == "ReadMatrixFromBinaryFile")
        << e.what();
    EXPECT_NO_THROW(std::rethrow_if_nested(e)) << "a nested copy of the cause";
  }
}

TEST(BinaryReaderMessages, NameTheFileAndTheSystemErrorWithNothingNested) {
  TempDir dir;
  const std::string five_floats(20, '\0');
  const std::string short_file = dir.File("short.bin");
  testing::WriteFile(short_file, five_floats);
  const std::string folder = dir.File("folder.bin");
  std::filesystem::create_directory(folder);

  // The stream form: the error text alone.
  ExpectBinaryReadError(
      [&] {
        std::istringstream in(five_floats);
        ReadMatrixFromBinaryFile<float>(in, 2, 3);
      },
      "Error reading matrix from binary file 'unexpected end of file'.");
  // The file form: the file's name and the system's error text.
  ExpectBinaryReadError(
      [&] { ReadMatrixFromBinaryFile<float>(short_file, 2, 3); },
      "Error reading matrix from binary file '" + short_file + "': unexpected end of file.");
  const std::string missing = dir.File("missing.bin");
  ExpectBinaryReadError(
      [&] { ReadMatrixFromBinaryFile<double>(missing, 1, 1); },
      "Error reading matrix from binary file '" + missing + "': " + std::strerror(ENOENT) + ".");
  ExpectBinaryReadError(
      [&] { ReadMatrixFromBinaryFile<int32_t>(folder, 1, 1); },
      "Error reading matrix from binary file '" + folder + "': " + std::strerror(EISDIR) + ".");
  // Through the loader: its own wrapper around the file form's message.
  const std::string chain = testing::ExpectErrorContaining(
      [&] {
        LoadDenseMatrixFromFileOrRamOrMakeRandom<float>(short_file.c_str(), nullptr, false, 2, 3);
      },
      "Problems opening file '" + short_file + "'.");
  EXPECT_EQ(std::count(chain.begin(), chain.end(), '\n'), 1) << chain;
  EXPECT_NE(chain.find("]] Error reading matrix from binary file '" + short_file +
                       "': unexpected end of file."),
            std::string::npos)
      << chain;
}

// A file whose first bytes are `head`, stretched to `size` bytes without
// writing them (a sparse file of zeros).
void WriteStretchedFile(const std::string& name, const std::string& head, std::size_t size) {
  testing::WriteFile(name, head);
  std::filesystem::resize_file(name, size);
}

TEST(MemoryLimits, ShortFilesAreRefusedBeforeAllocatingAndTooLargeMatricesFailCleanly) {
  if (kAddressSanitizer)
    GTEST_SKIP() << "the address sanitizer reserves more than the limit leaves";
  TempDir dir;
  // 16384 x 8192 doubles: 1 GiB, four times the room the child is given.
  const std::string header =
      NpyBytes("{'descr': '<f8', 'fortran_order': False, 'shape': (16384, 8192), }", "");
  const std::size_t gib = std::size_t{1} << 30;
  testing::WriteFile(dir.File("short.npy"), header + std::string(16, '\0'));
  WriteStretchedFile(dir.File("full.npy"), header, header.size() + gib);
  testing::WriteFile(dir.File("short.bin"), std::string(16, '\0'));
  WriteStretchedFile(dir.File("full.bin"), "", gib);

  const std::vector<std::string> files = {"short.npy", "full.npy", "short.bin", "full.bin"};
  const testing::ChildOutcome outcome = testing::RunInChild([&] {
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t limit = static_cast<rlim_t>(pages) * sysconf(_SC_PAGESIZE) + (rlim_t{256} << 20);
    const struct rlimit address_space = {limit, limit};
    if (setrlimit(RLIMIT_AS, &address_space) != 0) return 2;
    for (const std::string& name : files) {
      try {
        LoadDenseMatrixFromFileOrRamOrMakeRandom<double>(dir.File(name).c_str(), nullptr, false,
                                                         16384, 8192);
        std::printf("read\n==\n");
      } catch (const std::exception& e) {
        std::printf("%s\n==\n", ErrorChain(e).c_str());
      }
    }
    return 0;
  });
  ASSERT_TRUE(outcome.exited && outcome.status == 0) << outcome.status << outcome.err;
  std::vector<std::string> reports;
  for (std::size_t begin = 0, end; (end = outcome.out.find("\n==\n", begin)) != std::string::npos;
       begin = end + 4) {
    reports.push_back(outcome.out.substr(begin, end - begin));
  }
  ASSERT_EQ(reports.size(), files.size()) << outcome.out;
  const std::string expected[] = {
      "Error reading matrix from numpy stream: 'unexpected end of file'.",
      "Unable to allocate matrix of size (rows,cols)=(16384,8192) for reading from numpy file.",
      "Error reading matrix from binary file '" + dir.File("short.bin") +
          "': unexpected end of file.",
      "Unable to allocate matrix of size (rows,cols)=(16384,8192) for reading from binary file."};
  for (std::size_t i = 0; i < files.size(); ++i) {
    EXPECT_NE(reports[i].find("Problems opening file '" + dir.File(files[i]) + "'."),
              std::string::npos)
        << reports[i];
    EXPECT_NE(reports[i].find("]] " + expected[i]), std::string::npos) << reports[i];
  }
}

TEST(MappedFileTruncated, EndsTheRunWithTheLoadFailureReportAndStatus1) {
  TempDir dir;
  const std::string name = dir.File("m.npy");
  const DenseMatrix<float> m = DenseMatrix<float>::Constant(256, 1024, 0.5f);  // 1 MiB
  auto map_truncate_and_read = [&name, &m](bool truncate_file) {
    WriteMatrixToNumpyFile<float>(name, m, false);
    std::optional<MappedNumpyMatrix<float>> mapped = MappedNumpyMatrix<float>::Map(name);
    if (!mapped) std::exit(2);
    if (truncate_file && ::truncate(name.c_str(), 4096) != 0) std::exit(3);
    float sum = 0;
    for (int64_t i = 0; i < mapped->rows() * mapped->cols(); i += 1024) {
      sum += *static_cast<volatile const float*>(mapped->data() + i);
    }
    std::exit(sum > 0 ? 0 : 4);
  };
  EXPECT_EXIT(map_truncate_and_read(false), ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(map_truncate_and_read(true), ::testing::ExitedWithCode(1),
              "^ERROR DETECTED: Exception caught: .*Problems opening file '.*m\\.npy'\\.\n"
              "\\+\\+ .*Error reading matrix from numpy stream: 'the file was truncated while it "
              "was mapped'\\.\nEnd of Backtrace\\.\n$");
  // A bus error elsewhere keeps the disposition it had: the default action,
  // or the address sanitizer's report.
  auto map_and_raise = [&name, &m] {
    WriteMatrixToNumpyFile<float>(name, m, false);
    std::optional<MappedNumpyMatrix<float>> mapped = MappedNumpyMatrix<float>::Map(name);
    std::raise(SIGBUS);
  };
  if (kAddressSanitizer) {
    EXPECT_EXIT(map_and_raise(), ::testing::ExitedWithCode(1), "AddressSanitizer: BUS");
  } else {
    EXPECT_EXIT(map_and_raise(), ::testing::KilledBySignal(SIGBUS), "");
  }
}

}  // namespace
}  // namespace velmor::matrixio
