// Sparse CSV, sparse assembly from arrays, and the choice of reader and
// writer by file name.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "io/DenseMatrixIO.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "io/SparseCSVFileIOSupport.h"
#include "io/SparseMatrixIO.h"
#include "support/located_messages.h"
#include "support/temp_files.h"
#include "tests/io/io_test_support.h"

namespace velmor::matrixio {
namespace {

using testing::ExpectErrorContaining;
using testing::TempDir;

template <typename T>
SparseMatrix<T> ReadSparseCSV(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> names;
  return ReadSparseMatrixFromCSVFile<T>(in, names, false);
}

template <typename T>
class SparseIO : public ::testing::Test {};
using ElementTypes = ::testing::Types<int32_t, float, double>;
TYPED_TEST_SUITE(SparseIO, ElementTypes);

TYPED_TEST(SparseIO, CSVCellsAndLayout) {
  using T = TypeParam;
  // Empty cells are absent entries; blanks around a number are not a cell of
  // their own.
  const SparseMatrix<T> a = ReadSparseCSV<T>("1,, 2 \r\n,3,\n, 4 ,\n");
  DenseMatrix<T> expected(3, 3);
  expected << 1, 0, 2, 0, 3, 0, 0, 4, 0;
  EXPECT_EQ(DenseMatrix<T>(a), expected);
  EXPECT_EQ(a.nonZeros(), 4);
  ExpectErrorContaining([] { ReadSparseCSV<T>("1,2\n1,2,3\n"); },
                        "at line 1. Expected 2 columns, but got 3 columns instead.");
  ExpectErrorContaining([] { ReadSparseCSV<T>("1,x\n"); }, "Error converting cell 'x'");
  const std::string chain =
      ExpectErrorContaining([] { ReadSparseCSV<T>("1,2 2\n"); }, "contains more than a single");
  EXPECT_NE(chain.find(":ReadSparseMatrixFromCSVFile]]"), std::string::npos) << chain;
  // White space, and the carriage return of a CRLF line after a final comma,
  // are cells like any other, and not numbers.
  const std::string type = std::is_same_v<T, int32_t> ? "an integer number (32 bits)"
                           : std::is_same_v<T, float>
                               ? "a floating point number (single precision)"
                               : "a floating point number (double precision)";
  ExpectErrorContaining([] { ReadSparseCSV<T>("1, ,2\n"); },
                        "Error converting cell ' ' to '" + type + "' at row 0, col 1");
  ExpectErrorContaining([] { ReadSparseCSV<T>("1,,2\n3,4,\r\n"); },
                        "Error converting cell '\r' to '" + type + "' at row 1, col 2");
}

TYPED_TEST(SparseIO, WriteReadRoundTripAndAssemblyAgree) {
  using T = TypeParam;
  TempDir dir;
  std::mt19937 random(11);
  for (const auto& [rows, cols] : {std::pair{1, 1}, {5, 1}, {1, 6}, {17, 9}, {32, 33}}) {
    // Random triplets with duplicates; the oracle is a std::map of sums.
    std::vector<int32_t> row, col;
    std::vector<T> value;
    std::map<std::pair<int, int>, T> oracle;
    const int n = rows * cols / 2 + 3;
    for (int k = 0; k < n; ++k) {
      row.push_back(static_cast<int32_t>(random() % rows));
      col.push_back(static_cast<int32_t>(random() % cols));
      value.push_back(static_cast<T>(static_cast<int>(random() % 19) - 9) /
                      T(std::is_integral_v<T> ? 1 : 4));
      oracle[{row.back(), col.back()}] += value.back();
    }
    const SparseMatrix<T> by_triplets = MapBinaryToSparseMatrix<T>(rows, cols, row, col, value);
    const SparseMatrix<T> in_place =
        MapBinaryToSparseMatrixMemoryEfficient<T>(rows, cols, row, col, value);
    std::vector<SparseTriplet<T>> triplets;
    for (int k = 0; k < n; ++k) triplets.emplace_back(row[k], col[k], value[k]);
    const SparseMatrix<T> from_list = MapBinaryToSparseMatrixTriplet<T>(rows, cols, triplets);
    ASSERT_EQ(in_place.nonZeros(), static_cast<Eigen::Index>(oracle.size()));
    ASSERT_EQ(by_triplets.nonZeros(), static_cast<Eigen::Index>(oracle.size()));
    for (const auto& [position, sum] : oracle) {
      EXPECT_EQ(by_triplets.coeff(position.first, position.second), sum);
      EXPECT_EQ(in_place.coeff(position.first, position.second), sum);
      EXPECT_EQ(from_list.coeff(position.first, position.second), sum);
    }
    EXPECT_EQ(DenseMatrix<T>(in_place), DenseMatrix<T>(by_triplets));
    // Written as CSV and read back: the same stored entries, zeros included.
    WriteSparseMatrixToFile<T>(in_place, dir.File("s.csv"));
    const SparseMatrix<T> back = ReadSparseMatrixFromFile<T>(dir.File("s.csv").c_str());
    EXPECT_EQ(back.rows(), rows);
    EXPECT_EQ(back.cols(), cols);
    EXPECT_EQ(back.nonZeros(), in_place.nonZeros());
    EXPECT_EQ(DenseMatrix<T>(back), DenseMatrix<T>(in_place));
  }
  const std::vector<int32_t> two{0, 1}, one{0};
  const std::vector<T> values{T(1), T(2)};
  ExpectErrorContaining([&] { MapBinaryToSparseMatrix<T>(2, 2, two, one, values); },
                        "Triplets to construct the sparse matrix are of different sizes.");
  ExpectErrorContaining(
      [&] {
        MapBinaryToSparseMatrixMemoryEfficient<T>(2, 2, two, two,
                                                  std::span<const T>(values.data(), 1));
      },
      "Triplets to construct the sparse matrix are of different sizes.");
  ExpectErrorContaining([&] { MapBinaryToSparseMatrixMemoryEfficient<T>(1, 2, two, two, values); },
                        "lies outside");
  ExpectErrorContaining([&] { MapBinaryToSparseMatrix<T>(-1, 2, two, two, values); },
                        "Unable to allocate sparse matrix of size (rows,cols)=(-1,2).");
}

TEST(SparseDispatch, NamesAndExtensions) {
  TempDir dir;
  testing::WriteFile(dir.File("a.CSV"), "1,,2\n");
  EXPECT_EQ(ReadSparseMatrixFromFile<double>(dir.File("a.CSV").c_str()).nonZeros(), 2);
  EXPECT_EQ(ReadSparseMatrixFromFile<double>(dir.File("a.CSV").c_str(), nullptr).nonZeros(), 2);
  ExpectErrorContaining<std::invalid_argument>([] { ReadSparseMatrixFromFile<double>(nullptr); },
                                               "Must specify a file to read from.");
  ExpectErrorContaining(
      [&] { ReadSparseMatrixFromFile<double>(dir.File("a.txt").c_str()); },
      "Sparse matrix files must be either a .npz or .csv file type but was given");
  ExpectErrorContaining<std::invalid_argument>(
      [] { ReadSparseMatrixFromFile<double>("a.csv", "b.npz"); },
      "Must specify one and only one type of matrix to produce with arguments "
      "given: (a.csv) and (b.npz).");
  const std::string chain = ExpectErrorContaining(
      [&] { ReadSparseMatrixFromFile<double>(nullptr, dir.File("missing.npz").c_str()); },
      "Problems opening file");
  EXPECT_NE(chain.find("Error reading sparse matrix from npz file"), std::string::npos);
  ExpectErrorContaining(
      [&] { WriteSparseMatrixToFile<double>(SparseMatrix<double>(2, 2), dir.File("s.npz")); },
      "Current version can not write sparse matrices to anything but .csv files");
}

TEST(DenseDispatch, LoadingSources) {
  TempDir dir;
  DenseMatrix<double> m(2, 3);
  m << 1, 2, 3, 4, 5, 6;
  WriteDenseMatrixToFile<double>(m, dir.File("m.CSV").c_str(), false);
  WriteDenseMatrixToFile<double>(m, dir.File("m.NPY").c_str(), false);
  WriteDenseMatrixToFile<double>(m, dir.File("m.bin").c_str(), false);
  // Upper-case extensions are read; rows and cols are ignored for CSV and NPY;
  // the named forms and memory give the same matrix.
  const auto load = [](const char* name, int rows, int cols) {
    return LoadDenseMatrixFromFileOrRamOrMakeRandom<double>(name, nullptr, false, rows, cols);
  };
  EXPECT_EQ(load(dir.File("m.CSV").c_str(), -4, 0), m);
  EXPECT_EQ(load(dir.File("m.NPY").c_str(), 0, 0), m);
  EXPECT_EQ(load(dir.File("m.bin").c_str(), 2, 3), m);
  EXPECT_EQ(LoadDenseMatrixFromFileOrRamOrMakeRandom<double>(nullptr, dir.File("m.bin").c_str(),
                                                             nullptr, nullptr, false, 2, 3),
            m);
  EXPECT_EQ(LoadDenseMatrixFromFileOrRamOrMakeRandom<double>(
                nullptr, nullptr, dir.File("m.NPY").c_str(), nullptr, false, 0, 0),
            m);
  EXPECT_EQ(LoadDenseMatrixFromFileOrRamOrMakeRandom<double>(nullptr, m.data(), false, 2, 3), m);
  // Mixed case is unknown, nested in the opening failure.
  const std::string chain = ExpectErrorContaining<std::runtime_error>(
      [&] { LoadDenseMatrixFromFileOrRamOrMakeRandom<double>("x.Csv", nullptr, false, 1, 1); },
      "Problems opening file 'x.Csv'.");
  EXPECT_NE(chain.find("Unknown file type 'x.Csv'."), std::string::npos);
  ExpectErrorContaining<std::invalid_argument>(
      [&] { LoadDenseMatrixFromFileOrRamOrMakeRandom<double>("x.csv", nullptr, true, 1, 1); },
      "Must specify one and only one type of input to produce matrix, but got 2: name = (x.csv), "
      "is_ram_ptr_p=0, "
      "and create_random_matrix_p=1.");
  ExpectErrorContaining<std::invalid_argument>(
      [&] {
        LoadDenseMatrixFromFileOrRamOrMakeRandom<double>("missing.bin", nullptr, false, 0, 5);
      },
      "Rows (=0) and Columns (=5) must both be positive.");
  ExpectErrorContaining<std::invalid_argument>(
      [&] {
        LoadDenseMatrixFromFileOrRamOrMakeRandom<float>(nullptr, nullptr, nullptr, nullptr, false,
                                                        1, 1);
      },
      "Must specify one and only one type of matrix to produce with arguments given: (), (), (), 0 "
      "and 0.");
  const std::string bin_chain = ExpectErrorContaining<std::runtime_error>(
      [&] {
        LoadDenseMatrixFromFileOrRamOrMakeRandom<double>(dir.File("m.bin").c_str(), nullptr, false,
                                                         3, 3);
      },
      "Problems opening file");
  EXPECT_NE(bin_chain.find("Error reading matrix from binary file"), std::string::npos);
  // Random entries: floats in [0, 1], integers in [0, modulus).
  std::srand(5);
  const DenseMatrix<float> f =
      LoadDenseMatrixFromFileOrRamOrMakeRandom<float>(nullptr, nullptr, true, 50, 40);
  EXPECT_GE(f.minCoeff(), 0.0f);
  EXPECT_LE(f.maxCoeff(), 1.0f);
  EXPECT_GT(f.maxCoeff() - f.minCoeff(), 0.9f);
  const DenseMatrix<int32_t> i =
      LoadDenseMatrixFromFileOrRamOrMakeRandom(nullptr, nullptr, true, 50, 40, 10);
  EXPECT_EQ(i.minCoeff(), 0);
  EXPECT_EQ(i.maxCoeff(), 9);
  // The same seed gives the same matrix.
  std::srand(5);
  EXPECT_EQ(LoadDenseMatrixFromFileOrRamOrMakeRandom<float>(nullptr, nullptr, true, 50, 40), f);
}

TEST(DenseDispatch, Writing) {
  TempDir dir;
  DenseMatrix<int32_t> m(2, 2);
  m << 1, 2, 3, 4;
  ExpectErrorContaining(
      [&] { WriteMatrixToFile<int32_t>(m, dir.File("m.NPY"), false); },
      "Unable to write to file, unknown file type from unknonw extension in filename");
  WriteMatrixToFile<int32_t>(m, dir.File("m.npy"), true);
  EXPECT_EQ(ReadMatrixFromNumpyFile<int32_t>(dir.File("m.npy")), m);
  WriteMatrixToFile<int32_t>(m, dir.File("m.csv"), false);
  EXPECT_EQ(testing::ReadFile(dir.File("m.csv")), "1,2\n3,4\n");
  WriteDenseMatrixToFile<int32_t>(m, dir.File("m.NPY").c_str(), false);
  EXPECT_EQ(ReadMatrixFromNumpyFile<int32_t>(dir.File("m.NPY")), m);
  ExpectErrorContaining(
      [&] { WriteDenseMatrixToFile<int32_t>(m, dir.File("m.txt").c_str(), false); },
      "Unknown file type to save matrix");
  ExpectErrorContaining<std::invalid_argument>(
      [&] { WriteDenseMatrixToFile<int32_t>(m, "a.csv", true); },
      "Must specify one and only one type of matrix to produce with arguments "
      "given: (a.csv) and 1.");
  ExpectErrorContaining<std::invalid_argument>(
      [&] { WriteDenseMatrixToFile<int32_t>(m, "a", "b", nullptr, false); },
      "given: (a), (b), (), and 0.");
}

}  // namespace
}  // namespace velmor::matrixio
