// Dense CSV, raw binary and .npy: round trips and the edge cases of each format
// (numpy's own reading of our files is in numpy_interop_test).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "io/DenseBinFileIOSupport.h"
#include "io/DenseCSVFileIOSupport.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "support/float_types.h"
#include "support/located_messages.h"
#include "support/temp_files.h"
#include "tests/io/io_test_support.h"

namespace velmor::matrixio {
namespace {

template <typename T>
class DenseFormats : public ::testing::Test {};
TYPED_TEST_SUITE(DenseFormats, testing::FloatTypes);

using testing::ExpectErrorContaining;
using testing::TempDir;

template <typename T>
DenseMatrix<T> ReadCSV(const std::string& text, bool header = false) {
  std::istringstream in(text);
  std::vector<std::string> names;
  return ReadMatrixFromCSVFile<T>(in, names, header);
}

TYPED_TEST(DenseFormats, CSVWriteRoundTrip) {
  using T = TypeParam;
  // Round trip through text keeps digits10 significant digits and the names.
  DenseMatrix<T> values(2, 3);
  values << T(1) / 3, T(-2) / 7, T(1e-20), T(123456789.123), T(0), T(-5);
  std::ostringstream out;
  WriteMatrixToCSVFile<T>(out, values, {"x", "y", "z"});
  std::istringstream back(out.str());
  std::vector<std::string> names;
  const DenseMatrix<T> read = ReadMatrixFromCSVFile<T>(back, names, true);
  const int digits = std::numeric_limits<T>::digits10;
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 3; ++j) {
      char text[64];
      std::snprintf(text, sizeof(text), "%.*g", digits, static_cast<double>(values(i, j)));
      EXPECT_EQ(read(i, j), static_cast<T>(std::strtod(text, nullptr))) << text;
    }
  EXPECT_EQ(names, (std::vector<std::string>{"x", "y", "z"}));
  ExpectErrorContaining(
      [&] {
        std::ostringstream o;
        WriteMatrixToCSVFile<T>(o, values, {"x"});
      },
      "Trying to produce matrix with 3 columns but 1 field names.");
}

TYPED_TEST(DenseFormats, CSVRefusals) {
  using T = TypeParam;
  const std::pair<const char*, const char*> refused[] = {
      {"1,2,3\n4,5\n",
       "Stream has incorrect format at line 1. Expected 3 columns, but got 2 columns instead."},
      {"1,2\n3,,4\n", "Error converting cell '' to 'a floating point number"},
      {"1,2 3\n", "Cell '2 3' contains more than a single floating point value"},
      {"1,nan\n", "Encountered IEEE NaN during read"},
      {"inf,1\n", "Encountered IEEE Inf during read"},
      {"1\n1e400\n", "Cell '1e400' is out of range to be converted to"},
  };
  for (const auto& [text, message] : refused)
    ExpectErrorContaining([&] { ReadCSV<T>(text); }, message);
  const std::string chain =
      ExpectErrorContaining([] { ReadCSV<T>("1,2\nx,4\n"); }, "at row 1, col 0");
  EXPECT_EQ(chain.rfind("[[@DenseCSVFileIOSupport:", 0), 0u) << chain;
  EXPECT_NE(chain.find(":ReadMatrixFromCSVFile]]"), std::string::npos) << chain;
}

TEST(DenseCSV, SinglePrecisionRangeAndIntegers) {
  ExpectErrorContaining(
      [] { ReadCSV<float>("1e40\n"); },
      "Cell '1e40' is out of range to be converted to 'a floating point number (single precision)' "
      "at row 0, col 0");
  EXPECT_EQ(ReadCSV<double>("1e40\n")(0, 0), 1e40);
  DenseMatrix<int32_t> expected(2, 2);
  expected << 1, -2, 2147483647, +3;
  EXPECT_EQ(ReadCSV<int32_t>(" 1,-2\n2147483647,+3\n"), expected);
  ExpectErrorContaining([] { ReadCSV<int32_t>("2147483648\n"); },
                        "is out of range to be converted to 'an integer number (32 bits)'");
  ExpectErrorContaining([] { ReadCSV<int32_t>("1.5\n"); },
                        "Cell '1.5' contains more than a single integer value");
  // Counting lines and cells.
  std::istringstream a("h1,h2\n1,2\n3,4\n");
  EXPECT_EQ(ReadRowsColsFromCSVFile(a, true), (std::pair<int64_t, int64_t>{2, 2}));
  std::istringstream b("1,2\n3\n");
  ExpectErrorContaining([&] { ReadRowsColsFromCSVFile(b, false); },
                        "at line 1. Expected 2 columns, but got 1");
  std::istringstream c("1,2\n3\n");
  EXPECT_EQ(ReadRowsColsFromCSVFileNoColumnConsistencyCheck(c, false),
            (std::pair<int64_t, int64_t>{2, 2}));
}

TEST(DenseCSV, LongLinesAcrossReadBlocks) {
  // Lines longer than the reader's block, and many lines, read exactly.
  const int cols = 200000;
  std::string text;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < cols; ++c) {
      if (c > 0) text += ',';
      text += std::to_string((r * 31 + c) % 1000);
    }
    text += '\n';
  }
  const DenseMatrix<int32_t> m = ReadCSV<int32_t>(text);
  ASSERT_EQ(m.rows(), 3);
  ASSERT_EQ(m.cols(), cols);
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < cols; c += 997) EXPECT_EQ(m(r, c), (r * 31 + c) % 1000);
}

TYPED_TEST(DenseFormats, BinaryRoundTripAndEdges) {
  using T = TypeParam;
  TempDir dir;
  const DenseMatrix<T> m = Pattern<T>(3, 5);
  WriteMatrixToBinaryFile<T>(dir.File("m.bin"), m);
  EXPECT_EQ(ReadMatrixFromBinaryFile<T>(dir.File("m.bin"), 3, 5), m);
  // Fewer rows than stored: surplus ignored. More: refused.
  EXPECT_EQ(ReadMatrixFromBinaryFile<T>(dir.File("m.bin"), 2, 5),
            Eigen::Map<const DenseMatrix<T>>(m.data(), 2, 5));
  ExpectErrorContaining([&] { ReadMatrixFromBinaryFile<T>(dir.File("m.bin"), 4, 5); },
                        "Error reading matrix from binary file");
  ExpectErrorContaining(
      [&] { ReadMatrixFromBinaryFile<T>(dir.File("m.bin"), 65536, 65536); },
      "Unable to allocate matrix of size (rows,cols)=(65536,65536) for reading from binary file.");
  // Infinity accepted, NaN refused.
  DenseMatrix<T> special = m;
  special(1, 1) = std::numeric_limits<T>::infinity();
  WriteMatrixToBinaryFile<T>(dir.File("inf.bin"), special);
  EXPECT_EQ(ReadMatrixFromBinaryFile<T>(dir.File("inf.bin"), 3, 5), special);
  special(2, 4) = std::numeric_limits<T>::quiet_NaN();
  WriteMatrixToBinaryFile<T>(dir.File("nan.bin"), special);
  ExpectErrorContaining([&] { ReadMatrixFromBinaryFile<T>(dir.File("nan.bin"), 3, 5); },
                        "Encountered IEEE NaN during read");
  // The switch turns the check off.
  SetCheckForIEEENaNOnRead(false);
  const DenseMatrix<T> with_nan = ReadMatrixFromBinaryFile<T>(dir.File("nan.bin"), 3, 5);
  SetCheckForIEEENaNOnRead(true);
  EXPECT_TRUE(std::isnan(with_nan(2, 4)));
}

TYPED_TEST(DenseFormats, NumpyRoundTripsAndIntoExistingStorage) {
  using T = TypeParam;
  TempDir dir;
  for (const auto& [r, c] : {std::pair{1, 1}, {1, 7}, {7, 1}, {15, 17}, {16, 16}, {33, 40}}) {
    const DenseMatrix<T> m = Pattern<T>(r, c);
    for (const bool fortran : {false, true}) {
      WriteMatrixToNumpyFile<T>(dir.File("m.npy"), m, fortran);
      EXPECT_EQ(ReadMatrixFromNumpyFile<T>(dir.File("m.npy")), m) << r << "x" << c << fortran;
      // Into a matrix of the right shape (storage reused) and of another.
      DenseMatrix<T> same(r, c);
      const T* storage = same.data();
      ReadMatrixFromNumpyFile<T>(dir.File("m.npy"), same);
      EXPECT_EQ(same, m);
      EXPECT_EQ(same.data(), storage);
      DenseMatrix<T> other(2, 2);
      ReadMatrixFromNumpyFile<T>(dir.File("m.npy"), other);
      EXPECT_EQ(other, m);
      const std::string bytes = testing::ReadFile(dir.File("m.npy"));
      if (!fortran) {
        EXPECT_EQ(ReadRowMajorMatchingEndian2DNumpyMatrixFileFromMemoryBuffer<T>(bytes.data(),
                                                                                 bytes.size()),
                  m);
      }
    }
  }
  // A failing read into existing storage leaves no partial matrix.
  DenseMatrix<T> m = Pattern<T>(4, 4);
  m(3, 2) = std::numeric_limits<T>::quiet_NaN();
  WriteMatrixToNumpyFile<T>(dir.File("nan.npy"), m, false);
  DenseMatrix<T> target = Pattern<T>(4, 4);
  const std::string chain = ExpectErrorContaining(
      [&] { ReadMatrixFromNumpyFile<T>(dir.File("nan.npy"), target); }, "at row,col 3,2");
  EXPECT_NE(chain.find("Encountered IEEE NaN during read"), std::string::npos);
  EXPECT_EQ(target.size(), 0);
  DenseMatrix<T> untouched = Pattern<T>(2, 2);
  ExpectErrorContaining([&] { ReadMatrixFromNumpyFile<T>(dir.File("nan.npy"), untouched); }, "NaN");
  EXPECT_EQ(untouched, Pattern<T>(2, 2));
}

TEST(DenseNumpy, HeaderRefusals) {
  auto header = [](const std::string& dictionary, const std::string& data = std::string(64, '\0')) {
    return NpyBytes(dictionary, data);
  };
  auto read = [](const std::string& bytes) {
    std::istringstream in(bytes);
    return ReadMatrixFromNumpyFile<double>(in);
  };
  const std::pair<std::string, std::string> refused[] = {
      {"'<f8', 'fortran_order': False, 'shape': (0, 5), }",
       "Problem with matrix shape from numpy stream, got zero(s), (rows,cols) = (0, 5)."},
      {"'<c8', 'fortran_order': False, 'shape': (2, 2), }",
       "Unsupported data type from numpy stream, got 'c8'. Supported types are i4, i8, f4 and f8."},
      {"'<f8', 'fortran_order': Maybe, 'shape': (2, 2), }",
       "Problem reading fortran order from the header"},
      {"'<f8', 'fortran_order': False, 'shape': (2, 2, 2), }",
       "Only 1 dimentional vectors and 2 dimensional matrices are supported."},
      {"'<f8', 'fortran_order': False, 'shape': (), }",
       "Only 1 dimensional vectors and 2 dimensional matrices are supported."},
      {"'<f8', 'fortran_order': False, 'shape': (x, 2), }",
       "Unable to convert 'x' or '2' to a long long"},
      {"'<f8', 'fortran_order': False, 'shape': (9,), }", "Error reading matrix from numpy stream"},
      {"'<f8', 'fortran_order': False, 'shape': (99999999999, 99999999999), }",
       "Error reading matrix from numpy stream"},
  };
  for (const auto& [dictionary, message] : refused)
    ExpectErrorContaining([&] { read(header("{'descr': " + dictionary)); }, message);
  ExpectErrorContaining([&] { read(header("{'fortran_order': False, 'shape': (2, 2), }")); },
                        "Unable to find string ''descr''");
  // A 117-character dictionary fills a 128-byte header with no blank.
  const std::string dict117 =
      "{'descr': '<f8', 'fortran_order': False, 'shape': (1," + std::string(59, ' ') + "2), }";
  ASSERT_EQ(dict117.size(), 117u);
  const std::string file117 = header(dict117, std::string(16, '\0'));
  EXPECT_EQ(static_cast<unsigned char>(file117[8]), 118);
  EXPECT_EQ(file117[127], '\n');
  EXPECT_EQ(read(file117), DenseMatrix<double>::Zero(1, 2));
  // The memory fast path refuses what it cannot copy as is.
  const std::string big = header("{'descr': '>f8', 'fortran_order': False, 'shape': (1, 2), }");
  ExpectErrorContaining(
      [&] {
        ReadRowMajorMatchingEndian2DNumpyMatrixFileFromMemoryBuffer<double>(big.data(), big.size());
      },
      "Matrix must be row-major, little endian, and float32, float64, or int32 type");
}

}  // namespace
}  // namespace velmor::matrixio
