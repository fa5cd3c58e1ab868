// Bad input never crashes: every truncation of small valid files and
// thousands of random single-byte corruptions give either a matrix or an
// exception (the sanitizer build checks the memory side).
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "io/DenseBinFileIOSupport.h"
#include "io/DenseCSVFileIOSupport.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "io/SparseCSVFileIOSupport.h"
#include "io/SparseMatrixIO.h"
#include "io/SparseNumpyFileIOSupport.h"
#include "support/located_messages.h"
#include "support/temp_files.h"
#include "tests/io/io_test_support.h"

namespace velmor::matrixio {
namespace {

using Reader = std::function<void(const std::string&)>;

struct Outcome {
  int read = 0;
  int refused = 0;
};

// Feeds `bytes` to `reader`; only std::exception may leave it.
void Feed(const Reader& reader, const std::string& bytes, Outcome& outcome) {
  try {
    reader(bytes);
    ++outcome.read;
  } catch (const std::exception&) {
    ++outcome.refused;
  }
}

// Every proper prefix, then `flips` random single-byte changes.
Outcome Torture(const Reader& reader, const std::string& valid, int flips,
                bool valid_reads = true) {
  Outcome outcome;
  if (valid_reads) {
    EXPECT_NO_THROW(reader(valid));
  }
  for (std::size_t length = 0; length < valid.size(); ++length)
    Feed(reader, valid.substr(0, length), outcome);
  std::mt19937 random(static_cast<unsigned>(valid.size()));
  for (int k = 0; k < flips; ++k) {
    std::string bytes = valid;
    bytes[random() % bytes.size()] = static_cast<char>(random() % 256);
    Feed(reader, bytes, outcome);
  }
  return outcome;
}

TEST(Corruption, DenseNumpy) {
  for (const bool fortran : {false, true}) {
    std::ostringstream out;
    WriteMatrixToNumpyFile<double>(out, Pattern<double>(3, 4), fortran);
    const Outcome o = Torture(
        [](const std::string& bytes) {
          std::istringstream in(bytes);
          const DenseMatrix<double> m = ReadMatrixFromNumpyFile<double>(in);
          // Whatever is read has the shape the header claims and was filled.
          EXPECT_GT(m.size(), 0);
        },
        out.str(), 3000);
    // Truncations inside the header or the data must all be refused.
    EXPECT_GE(o.refused, static_cast<int>(out.str().size()));
  }
  // Other element types and the memory fast path.
  std::ostringstream f4;
  WriteMatrixToNumpyFile<float>(f4, Pattern<float>(3, 4), false);
  Torture(
      [](const std::string& bytes) {
        ReadRowMajorMatchingEndian2DNumpyMatrixFileFromMemoryBuffer<float>(bytes.data(),
                                                                           bytes.size());
      },
      f4.str(), 2000);
  Torture(
      [](const std::string& bytes) {
        std::istringstream in(bytes);
        ReadMatrixFromNumpyFile<int32_t>(in);
      },
      f4.str(), 1000, false);
}

TEST(Corruption, DenseCSVAndBinary) {
  std::ostringstream csv;
  WriteMatrixToCSVFile<double>(csv, Pattern<double>(3, 4), {"a", "b", "c", "d"});
  Torture(
      [](const std::string& bytes) {
        std::istringstream in(bytes);
        std::vector<std::string> names;
        ReadMatrixFromCSVFile<float>(in, names, true);
      },
      csv.str(), 3000);
  Torture(
      [](const std::string& bytes) {
        std::istringstream in(bytes);
        ReadRowsColsFromCSVFile(in, true);
      },
      csv.str(), 500);
  std::ostringstream bin;
  WriteMatrixToBinaryFile<double>(bin, Pattern<double>(3, 4));
  const Outcome o = Torture(
      [](const std::string& bytes) {
        std::istringstream in(bytes);
        ReadMatrixFromBinaryFile<double>(in, 3, 4);
      },
      bin.str(), 2000);
  EXPECT_EQ(o.refused >= static_cast<int>(bin.str().size()), true);
}

// A small archive in the layout of SciPy's uncompressed save: stored local
// headers with zip64 extra fields, then a central directory signature.
std::string Archive(const std::vector<std::pair<std::string, std::string>>& entries, bool zip64) {
  std::string out;
  // Little-endian fields of the given byte widths.
  const auto put = [&out](std::initializer_list<std::pair<std::size_t, int>> fields) {
    for (const auto& [value, width] : fields) {
      for (int b = 0; b < width; ++b) out += static_cast<char>((value >> (8 * b)) & 0xff);
    }
  };
  for (const auto& [name, data] : entries) {
    const std::size_t size = zip64 ? 0xffffffffu : data.size();
    put({{0x04034b50, 4},
         {zip64 ? 45 : 20, 2},
         {0, 2},
         {0, 2},
         {0, 4},
         {0, 4},
         {size, 4},
         {size, 4},
         {name.size(), 2},
         {zip64 ? 20 : 0, 2}});
    out += name;
    if (zip64) put({{1, 2}, {16, 2}, {data.size(), 8}, {data.size(), 8}});
    out += data;
  }
  put({{0x02014b50, 4}});
  return out + std::string(42, '\0');
}

template <typename T>
std::string Npy1D(const std::string& descr, const std::vector<T>& values) {
  return NpyBytes(
      "{'descr': '" + descr + "', 'fortran_order': False, 'shape': (" +
          std::to_string(values.size()) + ",), }",
      std::string(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T)));
}

std::string Format(const std::string& f) {
  return NpyBytes("{'descr': '|S3', 'fortran_order': False, 'shape': (), }", f);
}

TEST(Corruption, SparseArchivesAndCSV) {
  // 3 x 4 CSR: [[1,0,2,0],[0,0,0,0],[0,3,0,4]], arrays in an unusual order.
  const std::string csr = Archive({{"data.npy", Npy1D<double>("<f8", {1, 2, 3, 4})},
                                   {"indptr.npy", Npy1D<int32_t>("<i4", {0, 2, 2, 4})},
                                   {"format.npy", Format("csr")},
                                   {"indices.npy", Npy1D<int32_t>("<i4", {0, 2, 1, 3})},
                                   {"shape.npy", Npy1D<int64_t>("<i8", {3, 4})}},
                                  true);
  std::istringstream in(csr);
  const SparseMatrix<double> m = ReadSparseMatrixFromScipyNPZFile<double>(in);
  DenseMatrix<double> expected(3, 4);
  expected << 1, 0, 2, 0, 0, 0, 0, 0, 0, 3, 0, 4;
  EXPECT_EQ(DenseMatrix<double>(m), expected);
  // The same as COO without zip64, with a duplicate that sums.
  const std::string coo = Archive({{"format.npy", Format("coo")},
                                   {"shape.npy", Npy1D<int64_t>("<i8", {3, 4})},
                                   {"row.npy", Npy1D<int32_t>("<i4", {0, 0, 2, 2, 2})},
                                   {"col.npy", Npy1D<int32_t>("<i4", {0, 2, 1, 3, 3})},
                                   {"data.npy", Npy1D<double>("<f8", {1, 2, 3, 1.5, 2.5})}},
                                  false);
  std::istringstream coo_in(coo);
  EXPECT_EQ(DenseMatrix<double>(ReadSparseMatrixFromScipyNPZFile<double>(coo_in)), expected);
  const Reader npz = [](const std::string& bytes) {
    std::istringstream s(bytes);
    ReadSparseMatrixFromScipyNPZFile<float>(s);
  };
  Torture(npz, csr, 3000);
  Torture(npz, coo, 2000);
  // Specific refusals.
  std::string bad_id = csr;
  bad_id[30 + 8] = 2;  // zip64 extra field identifier of the first entry
  testing::ExpectErrorContaining([&] { npz(bad_id); },
                                 "the extra field identifier code is 2, which should be 1");
  // Sparse CSV.
  Torture(
      [](const std::string& bytes) {
        std::istringstream s(bytes);
        std::vector<std::string> names;
        ReadSparseMatrixFromCSVFile<double>(s, names, false);
      },
      std::string("1,,2.5\n,3,\n-4,,\n"), 2000);
}

}  // namespace
}  // namespace velmor::matrixio
