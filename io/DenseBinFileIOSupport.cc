#include "io/DenseBinFileIOSupport.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <limits>
#include <new>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "io/MatrixIOInternal.h"
#include "utils/AtomicOutputFile.h"
#include "utils/FreshMemory.h"
#include "utils/error_messages.h"

namespace velmor::matrixio {
namespace {

// Values are read in pieces of this many bytes and checked while they are
// still in cache.
constexpr std::size_t kReadPieceBytes = std::size_t{1} << 19;

// The error text of a failed or short read.
std::string ReadErrorText() {
  return errno != 0 ? internal::SystemErrorText() : std::string("unexpected end of file");
}

// Both forms of the reader, under the name their messages carry. A failed or
// short read names the file when there is one.
template <typename T>
DenseMatrix<T> ReadMatrixFromBinaryFile(std::istream& stream, int rows, int cols,
                                        const std::string* file_name) {
  const int64_t elements = static_cast<int64_t>(rows) * cols;
  if (rows < 0 || cols < 0 || elements > std::numeric_limits<int32_t>::max()) {
    VELMOR_THROW(
        std::runtime_error,
        "Unable to allocate matrix of size (rows,cols)=(%d,%d) for reading from binary file.", rows,
        cols);
  }
  const std::size_t bytes = static_cast<std::size_t>(elements) * sizeof(T);
  // A file too short for the shape is refused before anything is allocated.
  errno = 0;
  const std::optional<uint64_t> remaining = internal::RemainingStreamBytes(stream);
  bool read = !remaining || *remaining >= bytes;
  DenseMatrix<T> matrix;
  if (read) {
    try {
      matrix.resize(rows, cols);
    } catch (const std::bad_alloc&) {
      VELMOR_THROW(
          std::runtime_error,
          "Unable to allocate matrix of size (rows,cols)=(%d,%d) for reading from binary file.",
          rows, cols);
    }
    PrepareFreshMemory(matrix.data(), bytes);
  }
  const bool nan_check = CheckForIEEENaNOnRead();
  char* destination = reinterpret_cast<char*>(matrix.data());
  for (std::size_t done = 0; read && done < bytes;) {
    const std::size_t piece = std::min(kReadPieceBytes, bytes - done);
    errno = 0;
    read = internal::ReadFully(stream, destination + done, piece);
    if (!read) break;
    const T* values = reinterpret_cast<const T*>(destination + done);
    const std::size_t count = piece / sizeof(T);
    if (internal::FindFirstIEEESpecial(values, count, nan_check, false) != count) {
      internal::ThrowIEEENaN();
    }
    done += piece;
  }
  if (!read) {
    const std::string error = ReadErrorText();
    if (file_name != nullptr) {
      VELMOR_THROW(std::runtime_error, "Error reading matrix from binary file '%s': %s.",
                   file_name->c_str(), error.c_str());
    }
    VELMOR_THROW(std::runtime_error, "Error reading matrix from binary file '%s'.", error.c_str());
  }
  return matrix;
}

}  // namespace

template <typename T>
DenseMatrix<T> ReadMatrixFromBinaryFile(std::istream& stream, int rows, int cols) {
  return ReadMatrixFromBinaryFile<T>(stream, rows, cols, nullptr);
}

template <typename T>
DenseMatrix<T> ReadMatrixFromBinaryFile(const std::string& file_name, int rows, int cols) {
  errno = 0;
  std::ifstream stream(file_name, std::ios_base::in | std::ios_base::binary);
  if (!stream) {
    const std::string error = ReadErrorText();
    VELMOR_THROW(std::runtime_error, "Error reading matrix from binary file '%s': %s.",
                 file_name.c_str(), error.c_str());
  }
  return ReadMatrixFromBinaryFile<T>(stream, rows, cols, &file_name);
}

template <typename T>
void WriteMatrixToBinaryFile(std::ostream& stream, const DenseMatrix<T>& matrix) {
  errno = 0;
  stream.write(reinterpret_cast<const char*>(matrix.data()),
               static_cast<std::streamsize>(matrix.size() * sizeof(T)));
  if (!stream) {
    const std::string error = internal::SystemErrorText();
    VELMOR_THROW(std::runtime_error, "Error writing binary matrix : %s.", error.c_str());
  }
}

template <typename T>
void WriteMatrixToBinaryFile(const std::string& file_name, const DenseMatrix<T>& matrix) {
  try {
    WriteWholeFile(file_name,
                   [&](std::ostream& stream) { WriteMatrixToBinaryFile(stream, matrix); });
  } catch (const std::system_error& error) {
    VELMOR_THROW(std::runtime_error, "Error writing to binary %s: %s.", file_name.c_str(),
                 error.what());
  }
}

#define VELMOR_INSTANTIATE_DENSE_BIN(T)                                              \
  template DenseMatrix<T> ReadMatrixFromBinaryFile<T>(std::istream&, int, int);      \
  template DenseMatrix<T> ReadMatrixFromBinaryFile<T>(const std::string&, int, int); \
  template void WriteMatrixToBinaryFile<T>(std::ostream&, const DenseMatrix<T>&);    \
  template void WriteMatrixToBinaryFile<T>(const std::string&, const DenseMatrix<T>&);

VELMOR_INSTANTIATE_DENSE_BIN(int32_t)
VELMOR_INSTANTIATE_DENSE_BIN(float)
VELMOR_INSTANTIATE_DENSE_BIN(double)

#undef VELMOR_INSTANTIATE_DENSE_BIN

}  // namespace velmor::matrixio
