// .npy files: the stream reader, the in-memory reader, the in-place mapping
// and the storage-reusing file reader must agree with each other, and every
// value read must be the one stored at its place in the file.
#include <cstring>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>

#include "fuzz/expectations.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/fuzz_targets.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "io/MappedNumpyMatrix.h"

namespace velmor::fuzz {
namespace {

using matrixio::DenseMatrix;
using matrixio::NumpyDataType;
using matrixio::NumpyHeader;

template <typename S>
S Decode(const char* raw, bool swap_bytes) {
  char bytes[sizeof(S)];
  std::memcpy(bytes, raw, sizeof(S));
  if (swap_bytes) {
    for (std::size_t i = 0; i < sizeof(S) / 2; ++i) std::swap(bytes[i], bytes[sizeof(S) - 1 - i]);
  }
  S value;
  std::memcpy(&value, bytes, sizeof(S));
  return value;
}

// The value stored at file position `index`, as T.
template <typename T>
T StoredValue(const std::string& bytes, uint64_t data_offset, const NumpyHeader& header,
              int64_t index) {
  const char* raw = bytes.data() + data_offset + index * header.ElementSize();
  switch (header.type) {
    case NumpyDataType::kInt32:
      return static_cast<T>(Decode<int32_t>(raw, header.swap_bytes));
    case NumpyDataType::kInt64:
      return static_cast<T>(Decode<int64_t>(raw, header.swap_bytes));
    case NumpyDataType::kFloat32:
      return static_cast<T>(Decode<float>(raw, header.swap_bytes));
    case NumpyDataType::kFloat64:
      return static_cast<T>(Decode<double>(raw, header.swap_bytes));
    case NumpyDataType::kByteString:
      break;
  }
  FailCheck(__FILE__, __LINE__, "header.type", "a byte-string file was read as numbers");
}

template <typename T>
bool SameMatrix(const DenseMatrix<T>& a, const DenseMatrix<T>& b) {
  if (a.rows() != b.rows() || a.cols() != b.cols()) return false;
  for (int64_t i = 0; i < a.size(); ++i) {
    if (!SameBits(a.data()[i], b.data()[i])) return false;
  }
  return true;
}

template <typename T>
void CheckNumpy(const std::string& bytes, const std::string& path) {
  std::istringstream header_in(bytes);
  NumpyHeader header;
  uint64_t data_offset = 0;
  const bool header_read =
      Succeeds([&] { header = matrixio::ReadNumpyFileHeader(header_in, &data_offset); });

  std::istringstream in(bytes);
  DenseMatrix<T> m;
  const bool read = Succeeds([&] { m = matrixio::ReadMatrixFromNumpyFile<T>(in); });
  VELMOR_FUZZ_CHECK(!read || header_read, "read a file whose header is refused");
  if (read) {
    VELMOR_FUZZ_CHECK(m.rows() == header.rows && m.cols() == header.cols, "shape");
    VELMOR_FUZZ_CHECK(
        data_offset + static_cast<uint64_t>(m.size()) * header.ElementSize() <= bytes.size(),
        "read more values than the file holds");
    for (int64_t r = 0; r < m.rows(); ++r) {
      for (int64_t c = 0; c < m.cols(); ++c) {
        const int64_t index = header.fortran_order ? c * m.rows() + r : r * m.cols() + c;
        VELMOR_FUZZ_CHECK(SameBits(m(r, c), StoredValue<T>(bytes, data_offset, header, index)),
                          "value at row " + std::to_string(r) + ", col " + std::to_string(c));
      }
    }
  }
  // Files of T's own type, host order and C order can be used as they lie.
  constexpr NumpyDataType own = std::is_same_v<T, int32_t> ? NumpyDataType::kInt32
                                : std::is_same_v<T, float> ? NumpyDataType::kFloat32
                                                           : NumpyDataType::kFloat64;
  const bool in_place = read && header.type == own && !header.swap_bytes &&
                        (!header.fortran_order || m.rows() == 1 || m.cols() == 1);

  DenseMatrix<T> from_memory;
  const bool memory_read = Succeeds([&] {
    from_memory = matrixio::ReadRowMajorMatchingEndian2DNumpyMatrixFileFromMemoryBuffer<T>(
        bytes.data(), bytes.size());
  });
  VELMOR_FUZZ_CHECK(memory_read == in_place, "the in-memory reader disagrees on acceptance");
  if (memory_read) VELMOR_FUZZ_CHECK(SameMatrix(from_memory, m), "the in-memory reader's values");

  if constexpr (!std::is_same_v<T, int32_t>) {
    std::optional<matrixio::MappedNumpyMatrix<T>> mapped;
    const bool mapped_ok = Succeeds([&] { mapped = matrixio::MappedNumpyMatrix<T>::Map(path); });
    VELMOR_FUZZ_CHECK(mapped_ok == read || (mapped_ok && !mapped),
                      "the mapping disagrees on acceptance");
    const bool aligned = data_offset % alignof(T) == 0;
    VELMOR_FUZZ_CHECK(!(in_place && aligned) || (mapped_ok && mapped),
                      "a file fit for mapping was not mapped");
    if (mapped) {
      VELMOR_FUZZ_CHECK(in_place, "mapped a file that cannot be used in place");
      const DenseMatrix<T> as_read = mapped->ElementMajor().transpose();
      VELMOR_FUZZ_CHECK(SameMatrix(as_read, m), "the mapping's values");
    }
  }

  // The file form, reusing a matrix of the file's shape: the file's values,
  // or on failure an empty matrix or the old contents, never a mixture.
  if (header_read && header.rows > 0 && header.cols > 0 && header.rows * header.cols <= 4096) {
    DenseMatrix<T> reused = DenseMatrix<T>::Constant(header.rows, header.cols, T(7));
    const bool reread = Succeeds([&] { matrixio::ReadMatrixFromNumpyFile<T>(path, reused); });
    VELMOR_FUZZ_CHECK(reread == read, "the file form disagrees on acceptance");
    if (reread) {
      VELMOR_FUZZ_CHECK(SameMatrix(reused, m), "the file form's values");
    } else {
      VELMOR_FUZZ_CHECK(reused.size() == 0 || (reused.array() == T(7)).all(),
                        "a failed read left a partly filled matrix");
    }
  }

  // Written in either order and read back: the same matrix.
  if (read) {
    for (const bool fortran : {false, true}) {
      std::stringstream out;
      matrixio::WriteMatrixToNumpyFile<T>(out, m, fortran);
      VELMOR_FUZZ_CHECK(SameMatrix(matrixio::ReadMatrixFromNumpyFile<T>(out), m), "round trip");
    }
  }
}

}  // namespace

int FuzzNumpy(const uint8_t* data, std::size_t size) {
  const std::string bytes = InputText(data, size);
  const std::string path = WriteScratchFile("matrix.npy", bytes);
  ForEachElementType([&](auto type) { CheckNumpy<decltype(type)>(bytes, path); });
  return 0;
}

}  // namespace velmor::fuzz

VELMOR_FUZZ_ENTRY_POINT(velmor::fuzz::FuzzNumpy)
