// Raw binary matrices: for any claimed shape the outcome is known in advance
// (refused for a bad or too large shape, a short file or a NaN; otherwise
// exactly the file's first bytes), and the stream form, the file form and the
// loader by file name must all give it.
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>

#include "fuzz/fuzz_support.h"
#include "fuzz/fuzz_targets.h"
#include "io/DenseBinFileIOSupport.h"
#include "io/DenseMatrixIO.h"

namespace velmor::fuzz {
namespace {

using matrixio::DenseMatrix;

template <typename T>
bool Expected(const std::string& file, int rows, int cols) {
  const int64_t elements = static_cast<int64_t>(rows) * cols;
  if (rows < 0 || cols < 0 || elements > std::numeric_limits<int32_t>::max()) return false;
  const std::size_t bytes = static_cast<std::size_t>(elements) * sizeof(T);
  if (file.size() < bytes) return false;
  if constexpr (!std::is_integral_v<T>) {
    for (int64_t i = 0; i < elements; ++i) {
      T value;
      std::memcpy(&value, file.data() + i * sizeof(T), sizeof(T));
      if (std::isnan(value)) return false;
    }
  }
  return true;
}

template <typename T>
void CheckMatrix(const DenseMatrix<T>& m, const std::string& file, int rows, int cols,
                 const char* which) {
  VELMOR_FUZZ_CHECK(m.rows() == rows && m.cols() == cols, std::string(which) + ": shape");
  VELMOR_FUZZ_CHECK(m.size() == 0 || std::memcmp(m.data(), file.data(), m.size() * sizeof(T)) == 0,
                    std::string(which) + ": values");
}

template <typename T>
void CheckBinary(const std::string& file, int rows, int cols) {
  const bool expected = Expected<T>(file, rows, cols);

  std::istringstream in(file);
  DenseMatrix<T> m;
  const bool read = Succeeds([&] { m = matrixio::ReadMatrixFromBinaryFile<T>(in, rows, cols); });
  VELMOR_FUZZ_CHECK(read == expected, "stream form: acceptance");
  if (read) CheckMatrix(m, file, rows, cols, "stream form");

  const std::string path = WriteScratchFile("matrix.bin", file);
  const bool file_read =
      Succeeds([&] { m = matrixio::ReadMatrixFromBinaryFile<T>(path, rows, cols); });
  VELMOR_FUZZ_CHECK(file_read == expected, "file form: acceptance");
  if (file_read) CheckMatrix(m, file, rows, cols, "file form");

  if constexpr (!std::is_integral_v<T>) {
    const bool loaded = Succeeds([&] {
      m = matrixio::LoadDenseMatrixFromFileOrRamOrMakeRandom<T>(path.c_str(), nullptr, false, rows,
                                                                cols);
    });
    VELMOR_FUZZ_CHECK(loaded == (expected && rows > 0 && cols > 0), "loader: acceptance");
    if (loaded) CheckMatrix(m, file, rows, cols, "loader");
  }
}

}  // namespace

int FuzzDenseBinary(const uint8_t* data, std::size_t size) {
  InputBytes input(data, size);
  // Shapes from -1000 to 64535: negative ones, and 2^31 or more elements.
  const int rows = static_cast<int>(input.Between(0, 65535)) - 1000;
  const int cols = static_cast<int>(input.Between(0, 65535)) - 1000;
  const uint8_t type = input.Byte();
  const std::string file = input.Rest();
  switch (type % 3) {
    case 0:
      CheckBinary<int32_t>(file, rows, cols);
      break;
    case 1:
      CheckBinary<float>(file, rows, cols);
      break;
    default:
      CheckBinary<double>(file, rows, cols);
      break;
  }
  return 0;
}

}  // namespace velmor::fuzz

VELMOR_FUZZ_ENTRY_POINT(velmor::fuzz::FuzzDenseBinary)
