// .npy files used in place: the mapped values against the reader's, the files
// that must be left to the reader, and failures against the reader's own.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "io/DenseNumpyFileIOSupport.h"
#include "io/MappedNumpyMatrix.h"
#include "support/float_types.h"
#include "support/located_messages.h"
#include "support/temp_files.h"
#include "tests/io/io_test_support.h"

namespace velmor::matrixio {
namespace {

using testing::FailureOf;
using testing::ReadFile;
using testing::RunPython;
using testing::TempDir;
using testing::WriteFile;

// Lines of /proc/self/maps that map `file_name`: how many mappings of it
// this process holds.
int MappingsOf(const std::string& file_name) {
  std::ifstream maps("/proc/self/maps");
  std::string line;
  int count = 0;
  while (std::getline(maps, line)) {
    if (line.size() >= file_name.size() &&
        line.compare(line.size() - file_name.size(), file_name.size(), file_name) == 0) {
      ++count;
    }
  }
  return count;
}

// Raw bytes of `matrix` equal to the element-major view of `mapped`: the
// transpose, value for value, bit for bit.
template <typename T>
void ExpectSameValues(const MappedNumpyMatrix<T>& mapped, const DenseMatrix<T>& matrix) {
  ASSERT_EQ(mapped.rows(), matrix.rows());
  ASSERT_EQ(mapped.cols(), matrix.cols());
  const DenseMatrix<T> transposed = matrix.transpose();
  EXPECT_EQ(std::memcmp(mapped.data(), transposed.data(),
                        sizeof(T) * static_cast<std::size_t>(matrix.size())),
            0);
  EXPECT_EQ(mapped.ElementMajor().data(), mapped.data());
  EXPECT_EQ(mapped.ElementMajor().rows(), matrix.cols());
  EXPECT_EQ(mapped.ElementMajor().cols(), matrix.rows());
}

template <typename T>
class MappedNumpyTyped : public ::testing::Test {};
TYPED_TEST_SUITE(MappedNumpyTyped, testing::FloatTypes);

// numpy's type code of T's element size, or of the other's.
template <typename T>
std::string Code(bool own = true) {
  return (sizeof(T) == 4) == own ? "f4" : "f8";
}

TYPED_TEST(MappedNumpyTyped, MappedValuesEqualReadValues) {
  using T = TypeParam;
  const TempDir& dir = FilesWrittenOnce(kNumpyFiles);
  const std::string own = Code<T>();
  // numpy's C-ordered files (header padded to 64 bytes), every shape; a single
  // row or column in Fortran order (laid out as in C order); a vector (n x 1).
  std::vector<std::string> files = {own + "_vector.npy"};
  for (const char* shape : {"1x1", "3x5", "17x33", "40x1", "1x40"})
    files.push_back(own + "c_" + shape + ".npy");
  for (const char* shape : {"1x1", "40x1", "1x40"}) files.push_back(own + "f_" + shape + ".npy");
  for (const std::string& file : files) {
    SCOPED_TRACE(file);
    std::optional<MappedNumpyMatrix<T>> mapped = MappedNumpyMatrix<T>::Map(dir.File(file));
    ASSERT_TRUE(mapped.has_value());
    ExpectSameValues(*mapped, ReadMatrixFromNumpyFile<T>(dir.File(file)));
  }
}

TYPED_TEST(MappedNumpyTyped, FilesThatNeedConversionAreLeftToTheReader) {
  using T = TypeParam;
  const TempDir& dir = FilesWrittenOnce(kNumpyFiles);
  const std::string own = Code<T>();
  const std::string other = Code<T>(false);
  // Fortran order, big-endian (one of each type), the other type, integers.
  for (const std::string& file :
       {own + "f_3x5.npy", own + "f_17x33.npy", std::string("f8b_1x1.npy"),
        std::string("f4bf_1x1.npy"), other + "c_3x5.npy", other + "c_1x1.npy",
        std::string("i4c_3x5.npy"), std::string("i8c_3x5.npy")}) {
    SCOPED_TRACE(file);
    EXPECT_FALSE(MappedNumpyMatrix<T>::Map(dir.File(file)).has_value());
    EXPECT_EQ(MappingsOf(dir.File(file)), 0);
  }

  // Data that starts at an offset that is not a multiple of the value size:
  // our file with one more blank in its header.
  const DenseMatrix<T> m = Pattern<T>(3, 5);
  const std::string aligned = dir.File("aligned.npy");
  WriteMatrixToNumpyFile<T>(aligned, m, false);
  std::string bytes = ReadFile(aligned);
  const std::size_t header_length = static_cast<unsigned char>(bytes[8]) + 1;
  bytes[8] = static_cast<char>(header_length);
  const std::size_t newline = bytes.find('\n');
  bytes = bytes.substr(0, newline) + ' ' + bytes.substr(newline);
  const std::string misaligned = dir.File("misaligned.npy");
  WriteFile(misaligned, bytes);
  {
    std::ifstream in(misaligned, std::ios::binary);
    uint64_t data_offset = 0;
    const NumpyHeader header = ReadNumpyFileHeader(in, &data_offset);
    EXPECT_EQ(data_offset, header_length + 10);
    EXPECT_NE(data_offset % sizeof(T), 0u);
    EXPECT_FALSE(MappedNumpyMatrix<T>::CanMapInPlace(header, data_offset));
    EXPECT_TRUE(MappedNumpyMatrix<T>::CanMapInPlace(header, data_offset - 1));
  }
  EXPECT_FALSE(MappedNumpyMatrix<T>::Map(misaligned).has_value());
  EXPECT_TRUE((ReadMatrixFromNumpyFile<T>(misaligned).array() == m.array()).all());

  // Not regular files.
  EXPECT_FALSE(MappedNumpyMatrix<T>::Map("/dev/null").has_value());
  EXPECT_FALSE(MappedNumpyMatrix<T>::Map(dir.File("")).has_value());
}

TYPED_TEST(MappedNumpyTyped, FailuresAreTheReadersFailures) {
  using T = TypeParam;
  const TempDir& dir = FilesWrittenOnce(kNumpyFiles);
  const std::string cut = dir.File("cut.npy");
  auto expect_same_failure = [](const std::string& what, const std::string& name) {
    SCOPED_TRACE(what);
    const std::optional<std::string> read = FailureOf([&] { ReadMatrixFromNumpyFile<T>(name); });
    const std::optional<std::string> map = FailureOf([&] { MappedNumpyMatrix<T>::Map(name); });
    ASSERT_TRUE(read.has_value());
    ASSERT_TRUE(map.has_value());
    EXPECT_EQ(*map, *read);
    EXPECT_EQ(MappingsOf(name), 0);
  };

  // Missing file.
  std::remove(cut.c_str());
  expect_same_failure("missing file", cut);
  expect_same_failure("numpy's 3-d array", dir.File("cube.npy"));

  // Truncation at every byte, header and values alike.
  WriteMatrixToNumpyFile<T>(cut, Pattern<T>(3, 5), false);
  const std::string whole = ReadFile(cut);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    WriteFile(cut, whole.substr(0, size));
    expect_same_failure("truncated to " + std::to_string(size) + " bytes", cut);
  }

  // The header is the reader's own parser's; a shape it refuses is refused,
  // not left to the reader.
  WriteFile(
      cut,
      NpyBytes("{'descr': '<" + Code<T>() + "', 'fortran_order': False, 'shape': (0, 2), }", ""));
  expect_same_failure("zero rows", cut);
}

// Restores the read switches on scope exit.
struct ReadSwitches {
  bool nan = CheckForIEEENaNOnRead();
  bool inf = CheckForIEEEInfOnRead();
  ~ReadSwitches() {
    SetCheckForIEEENaNOnRead(nan);
    SetCheckForIEEEInfOnRead(inf);
  }
};

TYPED_TEST(MappedNumpyTyped, SpecialValuesFollowTheReadSwitches) {
  using T = TypeParam;
  const TempDir& dir = FilesWrittenOnce(kNumpyFiles);
  ReadSwitches restore;
  const std::string name = dir.File("special.npy");
  for (const T special : {std::numeric_limits<T>::quiet_NaN(), std::numeric_limits<T>::infinity(),
                          -std::numeric_limits<T>::infinity()}) {
    DenseMatrix<T> m = Pattern<T>(4, 6);
    m(2, 3) = special;
    m(3, 1) = special;  // a later one is not the one reported
    WriteMatrixToNumpyFile<T>(name, m, false);

    // Switches on: the reader's failure, naming the first special in file order.
    SetCheckForIEEENaNOnRead(true);
    SetCheckForIEEEInfOnRead(true);
    const std::optional<std::string> read = FailureOf([&] { ReadMatrixFromNumpyFile<T>(name); });
    const std::optional<std::string> map = FailureOf([&] { MappedNumpyMatrix<T>::Map(name); });
    ASSERT_TRUE(read.has_value() && map.has_value());
    EXPECT_EQ(*map, *read);
    EXPECT_NE(map->find("row,col 2,3"), std::string::npos) << *map;
    EXPECT_EQ(MappingsOf(name), 0);

    // Switch for this kind off: mapped as it is.
    if (std::isnan(special)) {
      SetCheckForIEEENaNOnRead(false);
    } else {
      SetCheckForIEEEInfOnRead(false);
    }
    std::optional<MappedNumpyMatrix<T>> mapped = MappedNumpyMatrix<T>::Map(name);
    ASSERT_TRUE(mapped.has_value());
    ExpectSameValues(*mapped, ReadMatrixFromNumpyFile<T>(name));
  }

  // Checked on several threads (a file large enough to be split): still the
  // first special in file order, whichever part holds it.
  SetCheckForIEEENaNOnRead(true);
  SetCheckForIEEEInfOnRead(true);
  DenseMatrix<T> large = Pattern<T>(512, 512);
  large(450, 2) = std::numeric_limits<T>::quiet_NaN();
  large(300, 7) = std::numeric_limits<T>::infinity();
  large(301, 0) = std::numeric_limits<T>::quiet_NaN();
  WriteMatrixToNumpyFile<T>(name, large, false);
  const std::optional<std::string> read = FailureOf([&] { ReadMatrixFromNumpyFile<T>(name); });
  ASSERT_TRUE(read.has_value());
  for (int threads : {1, 2, 3, 4, 9}) {
    const std::optional<std::string> map =
        FailureOf([&] { MappedNumpyMatrix<T>::Map(name, threads); });
    ASSERT_TRUE(map.has_value());
    EXPECT_EQ(*map, *read) << threads << " threads";
  }
  EXPECT_NE(read->find("row,col 300,7"), std::string::npos) << *read;

  // With both switches on, the check also finds each column's largest value
  // (against a straightforward scan), the same on every thread count; with
  // one switch off there are none.
  DenseMatrix<T> mixed(700, 300);
  for (int i = 0; i < mixed.rows(); ++i) {
    for (int j = 0; j < mixed.cols(); ++j) {
      mixed(i, j) = static_cast<T>(std::sin(i * 7.0 + j * 13.0) * (i % 17) - 3.0);
    }
  }
  WriteMatrixToNumpyFile<T>(name, mixed, false);
  std::vector<T> expected(static_cast<std::size_t>(mixed.cols()));
  for (int j = 0; j < mixed.cols(); ++j)
    expected[static_cast<std::size_t>(j)] = mixed.col(j).maxCoeff();
  for (int threads : {1, 2, 3, 4}) {
    std::optional<MappedNumpyMatrix<T>> mapped = MappedNumpyMatrix<T>::Map(name, threads);
    ASSERT_TRUE(mapped.has_value());
    EXPECT_EQ(mapped->TakeCheckedColumnMaxima(), expected) << threads << " threads";
  }
  SetCheckForIEEEInfOnRead(false);
  EXPECT_TRUE(MappedNumpyMatrix<T>::Map(name, 2)->TakeCheckedColumnMaxima().empty());
  SetCheckForIEEEInfOnRead(true);
}

TYPED_TEST(MappedNumpyTyped, WritesNeverReachTheFileAndSharesOutliveTheObject) {
  using T = TypeParam;
  const TempDir& dir = FilesWrittenOnce(kNumpyFiles);
  const std::string name = dir.File("owned.npy");
  const DenseMatrix<T> m = Pattern<T>(9, 7);
  WriteMatrixToNumpyFile<T>(name, m, false);
  const std::string original_bytes = ReadFile(name);

  // Copy on write: the writer sees its write, the file and a second mapping
  // do not.
  {
    std::optional<MappedNumpyMatrix<T>> first = MappedNumpyMatrix<T>::Map(name);
    std::optional<MappedNumpyMatrix<T>> second = MappedNumpyMatrix<T>::Map(name);
    ASSERT_TRUE(first.has_value() && second.has_value());
    EXPECT_EQ(MappingsOf(name), 2);
    first->data()[0] = T(42);
    first->MutableElementMajor()(6, 8) = T(-1);  // last value of the last row
    EXPECT_EQ(first->data()[0], T(42));
    EXPECT_EQ(first->data()[9 * 7 - 1], T(-1));
    ExpectSameValues(*second, m);
    EXPECT_EQ(ReadFile(name), original_bytes);
  }
  EXPECT_EQ(MappingsOf(name), 0);

  // Share: the values outlive the object, the mapping lives as long as a copy.
  {
    std::shared_ptr<T> shared;
    {
      std::optional<MappedNumpyMatrix<T>> mapped = MappedNumpyMatrix<T>::Map(name);
      ASSERT_TRUE(mapped.has_value());
      const T* data = mapped->data();
      shared = std::move(*mapped).Share();
      EXPECT_EQ(shared.get(), data);
      EXPECT_EQ(mapped->data(), nullptr);
    }
    std::shared_ptr<T> copy = shared;
    shared.reset();
    EXPECT_EQ(MappingsOf(name), 1);
    EXPECT_EQ(copy.get()[7], m(1, 0));
    copy.reset();
    EXPECT_EQ(MappingsOf(name), 0);
  }
}

}  // namespace
}  // namespace velmor::matrixio
