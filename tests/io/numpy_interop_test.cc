// Round trips through the real numpy and scipy: their files read by us, ours
// read by them.
#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

#include "io/DenseBinFileIOSupport.h"
#include "io/DenseMatrixIO.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "io/SparseMatrixIO.h"
#include "io/SparseNumpyFileIOSupport.h"
#include "support/located_messages.h"
#include "support/temp_files.h"
#include "tests/io/io_test_support.h"

namespace velmor::matrixio {
namespace {

using testing::ExpectErrorContaining;
using testing::RunPython;
using testing::TempDir;

DenseMatrix<double> Expected(const TempDir& dir, const std::string& name, int rows, int cols) {
  return ReadMatrixFromBinaryFile<double>(dir.File(name + ".expect"), rows, cols);
}

TEST(NumpyInterop, DenseFilesWrittenByNumpyReadBackEqual) {
  const TempDir& dir = FilesWrittenOnce(kNumpyFiles);
  // Each file into the matrix types that take it: floating files (both
  // orders, both byte orders) into float and double, integer ones into int32.
  const struct {
    const char* kind;
    bool into_float, into_double, into_int;
  } kinds[] = {
      {"f4c", true, true, false}, {"f4f", true, true, false},  {"f4bf", true, true, false},
      {"f8c", true, true, false}, {"f8f", true, true, false},  {"f8b", true, true, false},
      {"i4c", false, true, true}, {"i8c", false, false, true}, {"i4b", false, false, true}};
  for (const auto& [r, c] : {std::pair{1, 1}, {3, 5}, {17, 33}, {40, 1}, {1, 40}}) {
    for (const auto& k : kinds) {
      const std::string name =
          std::string(k.kind) + "_" + std::to_string(r) + "x" + std::to_string(c);
      const std::string file = dir.File(name + ".npy");
      const DenseMatrix<double> expected = Expected(dir, name, r, c);
      EXPECT_TRUE(!k.into_float || ReadMatrixFromNumpyFile<float>(file) == expected.cast<float>())
          << name;
      EXPECT_TRUE(!k.into_double || ReadMatrixFromNumpyFile<double>(file) == expected) << name;
      EXPECT_TRUE(!k.into_int || ReadMatrixFromNumpyFile<int32_t>(file).cast<double>() == expected)
          << name;
    }
  }
  // A one-dimensional array is a column.
  const DenseMatrix<double> vector = ReadMatrixFromNumpyFile<double>(dir.File("f8_vector.npy"));
  EXPECT_EQ(vector.rows(), 23);
  EXPECT_EQ(vector, Expected(dir, "f8_vector", 23, 1));
  // Refusals by type.
  ExpectErrorContaining([&] { ReadMatrixFromNumpyFile<float>(dir.File("i8c_3x5.npy")); },
                        "Unable to read int64 npy file into 32-bit int matrix. Try, for example");
  ExpectErrorContaining([&] { ReadMatrixFromNumpyFile<float>(dir.File("i4c_3x5.npy")); },
                        "Unable to read an int32 npy file into a 32-bit float matrix.");
  ExpectErrorContaining([&] { ReadMatrixFromNumpyFile<int32_t>(dir.File("f4c_3x5.npy")); },
                        "Unable to read float32 npy file into a 32-bit int matrix.");
  const std::string chain =
      ExpectErrorContaining([&] { ReadMatrixFromNumpyFile<int32_t>(dir.File("big_i8.npy")); },
                            "Value 1099511627776 can't be converted to an int32.");
  EXPECT_NE(chain.find("Unable to read and convert data type int64 from npy matrix at row,col 0,1"),
            std::string::npos);
}

TEST(NumpyInterop, SparseArchivesWrittenByScipyReadBackEqual) {
  const TempDir& dir = FilesWrittenOnce(kNumpyFiles);
  for (const std::string name : {"csr", "coo"}) {
    const DenseMatrix<double> expected = Expected(dir, name, 13, 9);
    const SparseMatrix<double> read =
        ReadSparseMatrixFromScipyNPZFile<double>(dir.File(name + ".npz"));
    EXPECT_EQ(DenseMatrix<double>(read), expected) << name;
    EXPECT_EQ(read.nonZeros(), (expected.array() != 0).count()) << name;
    const SparseMatrix<float> as_float =
        ReadSparseMatrixFromFile<float>(dir.File(name + ".npz").c_str());
    EXPECT_EQ(DenseMatrix<float>(as_float), expected.cast<float>()) << name;
  }
  const SparseMatrix<float> empty = ReadSparseMatrixFromScipyNPZFile<float>(dir.File("empty.npz"));
  EXPECT_EQ(empty.rows(), 5);
  EXPECT_EQ(empty.cols(), 4);
  EXPECT_EQ(empty.nonZeros(), 0);

  ExpectErrorContaining(
      [&] { ReadSparseMatrixFromScipyNPZFile<double>(dir.File("compressed.npz")); },
      "Error reading from npz stream, only support uncompressed files.Compression Mode: 8");
  ExpectErrorContaining([&] { ReadSparseMatrixFromScipyNPZFile<double>(dir.File("csr64.npz")); },
                        "Processing Scipy sparse input CSR matrix with 64-bit indices");
  ExpectErrorContaining([&] { ReadSparseMatrixFromScipyNPZFile<double>(dir.File("coo64.npz")); },
                        "Processing Scipy COO sparse input matrix with 64-bit indices");
  // Through the dispatcher the reader's failure is nested.
  const std::string chain = ExpectErrorContaining(
      [&] { ReadSparseMatrixFromFile<double>(dir.File("csr64.npz").c_str()); },
      "Problems opening file");
  EXPECT_NE(chain.find("64-bit indices"), std::string::npos);
}

TEST(NumpyInteropWrite, FilesWrittenByUsReadByNumpyEqual) {
  TempDir dir;
  // Shapes around the header padding and the transposition block sizes.
  int index = 0;
  std::ostringstream checks;
  for (const auto& [r, c] : {std::pair{1, 1}, {3, 4}, {17, 33}, {70, 3}, {2, 1000}}) {
    DenseMatrix<double> d(r, c);
    for (int i = 0; i < r; ++i)
      for (int j = 0; j < c; ++j) d(i, j) = (i + 1) * 1000.5 + j * 0.001 - 7;
    for (const bool fortran : {false, true}) {
      std::string name = "m";
      name.append(std::to_string(index++));
      const std::string base = dir.File(name);
      WriteMatrixToNumpyFile<double>(base + "_f8.npy", d, fortran);
      WriteMatrixToNumpyFile<float>(base + "_f4.npy", d.cast<float>(), fortran);
      WriteMatrixToNumpyFile<int32_t>(base + "_i4.npy", d.cast<int32_t>(), fortran);
      WriteMatrixToBinaryFile<double>(base + "_f8.bin", d);
      WriteMatrixToBinaryFile<float>(base + "_f4.bin", d.cast<float>());
      WriteMatrixToBinaryFile<int32_t>(base + "_i4.bin", d.cast<int32_t>());
      for (const char* t : {"f8", "f4", "i4"}) {
        checks << "check('" << base << "_" << t << "', '" << t << "', " << r << ", " << c << ", "
               << (fortran ? "True" : "False") << ")\n";
      }
    }
  }
  const std::string script = std::string(R"PY(
import numpy as np
def check(base, t, r, c, fortran):
    m = np.load(base + '.npy')
    raw = open(base + '.npy', 'rb').read()
    header_length = raw[8] + 256 * raw[9]
    assert (10 + header_length) % 16 == 0, base
    assert raw[10 + header_length - 1] == ord('\n'), base
    assert m.dtype == np.dtype('<' + t), (base, m.dtype)
    assert m.shape == (r, c), (base, m.shape)
    assert m.flags['F_CONTIGUOUS'] if (fortran and r > 1 and c > 1) else True, base
    expected = np.fromfile(base + '.bin', dtype='<' + t).reshape((c, r)).T
    assert np.array_equal(m, expected), base
)PY") + checks.str();
  RunPython(dir, script);
}

}  // namespace
}  // namespace velmor::matrixio
