// Failing input: the binary reader's messages, sparse CSV cells of white
// space, and a mapped file truncated while in use.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "io/DenseBinFileIOSupport.h"
#include "io/DenseMatrixIO.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "io/MappedNumpyMatrix.h"
#include "io/SparseCSVFileIOSupport.h"
#include "tests/io/io_test_support.h"

namespace velmor::matrixio {
namespace {

using testing::ExpectFailure;
using testing::TempDir;
using testing::WriteFileBytes;

// The message after its "[[@File:line:function]] " prefix, and the function.
std::string Text(const std::exception& e) {
  const std::string what = e.what();
  const std::size_t end = what.find("]] ");
  return end == std::string::npos ? what : what.substr(end + 3);
}
std::string Function(const std::exception& e) {
  const std::string what = e.what();
  const std::size_t end = what.find("]] ");
  const std::size_t colon = what.rfind(':', end);
  return end == std::string::npos ? "" : what.substr(colon + 1, end - colon - 1);
}

template <typename Call>
void ExpectBinaryReadError(Call call, const std::string& text) {
  try {
    call();
    ADD_FAILURE() << "no failure; wanted: " << text;
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(Text(e), text);
    EXPECT_EQ(Function(e), "ReadMatrixFromBinaryFile");
    EXPECT_NO_THROW(std::rethrow_if_nested(e)) << "a nested copy of the cause";
  }
}

TEST(BinaryReaderMessages, NameTheFileAndTheSystemErrorWithNothingNested) {
  TempDir dir;
  const std::string five_floats(20, '\0');
  const std::string short_file = dir.File("short.bin");
  WriteFileBytes(short_file, five_floats);
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
  const std::string chain = ExpectFailure(
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

template <typename T>
SparseMatrix<T> ReadSparseCSV(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> names;
  return ReadSparseMatrixFromCSVFile<T>(in, names, false);
}

template <typename T>
void ExpectOnlyEmptyCellsAbsent(const std::string& description) {
  // White space, and the carriage return of a CRLF line after a final comma,
  // are cells like any other, and not numbers.
  ExpectFailure([] { ReadSparseCSV<T>("1, ,2\n"); },
                "Error converting cell ' ' to '" + description + "' at row 0, col 1");
  ExpectFailure([] { ReadSparseCSV<T>("1,,2\n3,4,\r\n"); },
                "Error converting cell '\r' to '" + description + "' at row 1, col 2");
  ExpectFailure([] { ReadSparseCSV<T>("\t\n"); },
                "Error converting cell '\t' to '" + description + "' at row 0, col 0");
  // Empty cells are absent; blanks around a number are not a cell of their own.
  const SparseMatrix<T> m = ReadSparseCSV<T>(",, 2 \r\n7,,\n");
  EXPECT_EQ(m.rows(), 2);
  EXPECT_EQ(m.cols(), 3);
  EXPECT_EQ(m.nonZeros(), 2);
  EXPECT_EQ(m.coeff(0, 2), T(2));
  EXPECT_EQ(m.coeff(1, 0), T(7));
}

TEST(SparseCSVCells, OnlyAnEmptyCellIsAbsent) {
  ExpectOnlyEmptyCellsAbsent<int32_t>("an integer number (32 bits)");
  ExpectOnlyEmptyCellsAbsent<float>("a floating point number (single precision)");
  ExpectOnlyEmptyCellsAbsent<double>("a floating point number (double precision)");
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
  // A bus error elsewhere keeps its default action.
  EXPECT_EXIT(
      {
        WriteMatrixToNumpyFile<float>(name, m, false);
        std::optional<MappedNumpyMatrix<float>> mapped = MappedNumpyMatrix<float>::Map(name);
        std::raise(SIGBUS);
      },
      ::testing::KilledBySignal(SIGBUS), "");
}

}  // namespace
}  // namespace velmor::matrixio
