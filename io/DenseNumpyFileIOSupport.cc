#include "io/DenseNumpyFileIOSupport.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <exception>
#include <fstream>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "io/MatrixIOInternal.h"
#include "io/NumpyArrayReading.h"
#include "utils/AtomicOutputFile.h"
#include "utils/FreshMemory.h"
#include "utils/error_messages.h"

namespace velmor::matrixio {
namespace {

// Bytes of values read (and converted, checked, transposed) per piece: small
// enough to stay in the 1 MiB second-level cache.
constexpr std::size_t kPieceBytes = std::size_t{1} << 19;
// Upper bound of a row block read for transposing wide C-ordered files.
constexpr std::size_t kMaxBlockBytes = std::size_t{64} << 20;
// Rows per block when transposing: whole cache lines per column.
constexpr int64_t kMinBlockRows = 16;

template <typename T>
constexpr NumpyDataType OwnType() {
  if constexpr (std::is_same_v<T, int32_t>) return NumpyDataType::kInt32;
  if constexpr (std::is_same_v<T, float>) return NumpyDataType::kFloat32;
  return NumpyDataType::kFloat64;
}

template <typename T>
constexpr const char* OwnDescr() {
  if constexpr (std::is_same_v<T, int32_t>) return "<i4";
  if constexpr (std::is_same_v<T, float>) return "<f4";
  return "<f8";
}

template <typename Bits>
Bits ByteSwap(Bits bits) {
  if constexpr (sizeof(Bits) == 4)
    return static_cast<Bits>(__builtin_bswap32(static_cast<uint32_t>(bits)));
  return static_cast<Bits>(__builtin_bswap64(static_cast<uint64_t>(bits)));
}

template <typename S>
S LoadRaw(const char* raw, bool swap_bytes) {
  using Bits = std::conditional_t<sizeof(S) == 4, uint32_t, uint64_t>;
  Bits bits;
  std::memcpy(&bits, raw, sizeof(bits));
  if (swap_bytes) bits = ByteSwap(bits);
  S value;
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

// Whether file values of `type` convert to T at all.
template <typename T>
bool Convertible(NumpyDataType type) {
  if constexpr (std::is_same_v<T, double>) {
    return type == NumpyDataType::kInt32 || type == NumpyDataType::kFloat32 ||
           type == NumpyDataType::kFloat64;
  } else if constexpr (std::is_same_v<T, float>) {
    return type == NumpyDataType::kFloat32 || type == NumpyDataType::kFloat64;
  } else {
    return type == NumpyDataType::kInt32 || type == NumpyDataType::kInt64;
  }
}

template <typename T, typename S>
std::size_t ConvertLoop(const char* raw, std::size_t count, bool swap_bytes, T* out) {
  const bool nan_check = CheckForIEEENaNOnRead();
  const bool inf_check = CheckForIEEEInfOnRead();
  for (std::size_t i = 0; i < count; ++i) {
    const S value = LoadRaw<S>(raw + i * sizeof(S), swap_bytes);
    if constexpr (std::is_floating_point_v<S>) {
      if (inf_check && std::isinf(value)) return i;
      if (nan_check && std::isnan(value)) return i;
      if constexpr (std::is_same_v<T, float> && std::is_same_v<S, double>) {
        if (std::fabs(value) > static_cast<double>(std::numeric_limits<float>::max())) return i;
      }
    }
    if constexpr (std::is_same_v<T, int32_t> && std::is_same_v<S, int64_t>) {
      if (value < std::numeric_limits<int32_t>::min() ||
          value > std::numeric_limits<int32_t>::max())
        return i;
    }
    out[i] = static_cast<T>(value);
  }
  return count;
}

uint64_t ElementCount(const NumpyHeader& header) {
  return static_cast<uint64_t>(header.rows) * static_cast<uint64_t>(header.cols);
}

// Fills the column-major rows x cols storage at `destination` from the values
// that follow the header in `stream`. Named after the public function so that
// its messages carry that name.
template <typename T>
void ReadMatrixFromNumpyFile(std::istream& stream, const NumpyHeader& header, T* destination) {
  const int64_t rows = header.rows;
  const int64_t cols = header.cols;
  const std::size_t element_size = static_cast<std::size_t>(header.ElementSize());
  const std::size_t count = ElementCount(header);
  const bool file_order_is_memory_order = header.fortran_order || rows == 1 || cols == 1;
  const bool direct = header.type == OwnType<T>() && !header.swap_bytes;

  char failing_value[8];  // the bytes of the value that failed, kept beyond its buffer
  // Reports a value's failure at file position `index`, with its raw bytes.
  auto fail_at = [&](std::size_t index, const char* raw) {
    const int64_t row = file_order_is_memory_order ? static_cast<int64_t>(index) % rows
                                                   : static_cast<int64_t>(index) / cols;
    const int64_t col = file_order_is_memory_order ? static_cast<int64_t>(index) / rows
                                                   : static_cast<int64_t>(index) % cols;
    std::memcpy(failing_value, raw, element_size);
    return std::make_pair(std::make_pair(row, col), static_cast<const char*>(failing_value));
  };
  std::optional<std::pair<std::pair<int64_t, int64_t>, const char*>> failure;
  bool short_read = false;

  if (file_order_is_memory_order) {
    std::vector<char> buffer(direct ? 0 : std::min(kPieceBytes, count * element_size));
    const std::size_t piece_values = std::max<std::size_t>(1, kPieceBytes / element_size);
    for (std::size_t done = 0; done < count && !failure && !short_read;) {
      const std::size_t n = std::min(piece_values, count - done);
      char* raw = direct ? reinterpret_cast<char*>(destination + done) : buffer.data();
      errno = 0;
      if (!internal::ReadFully(stream, raw, n * element_size)) {
        short_read = true;
        break;
      }
      const std::size_t bad =
          internal::ConvertNumpyValues(raw, n, header.type, header.swap_bytes, destination + done);
      if (bad != n) failure = fail_at(done + bad, raw + bad * element_size);
      done += n;
    }
  } else {
    const std::size_t row_bytes = static_cast<std::size_t>(cols) * element_size;
    int64_t block_rows =
        std::max<int64_t>(kMinBlockRows, static_cast<int64_t>(kPieceBytes / row_bytes));
    block_rows = std::min<int64_t>(block_rows, std::max<int64_t>(1, kMaxBlockBytes / row_bytes));
    block_rows = std::min(block_rows, rows);
    std::vector<char> raw(static_cast<std::size_t>(block_rows) * row_bytes);
    std::vector<T> converted(direct ? 0 : static_cast<std::size_t>(block_rows * cols));
    for (int64_t first = 0; first < rows && !failure;) {
      const int64_t n_rows = std::min(block_rows, rows - first);
      const std::size_t n = static_cast<std::size_t>(n_rows * cols);
      char* block = raw.data();
      errno = 0;
      if (!internal::ReadFully(stream, block, n * element_size)) {
        short_read = true;
        break;
      }
      // Same-type values are checked where they lie (no copy: `out` == `raw`).
      T* values = direct ? reinterpret_cast<T*>(block) : converted.data();
      const std::size_t bad =
          internal::ConvertNumpyValues(block, n, header.type, header.swap_bytes, values);
      if (bad != n) {
        failure = fail_at(static_cast<std::size_t>(first * cols) + bad, block + bad * element_size);
        break;
      }
      internal::CopyRowMajorRowsIntoColumnMajor(values, n_rows, cols, destination, rows, first);
      first += n_rows;
    }
  }
  if (short_read) {
    const std::string error =
        errno != 0 ? internal::SystemErrorText() : std::string("unexpected end of file");
    VELMOR_THROW(std::runtime_error, "Error reading matrix from numpy stream: '%s'.",
                 error.c_str());
  }
  if (failure) {
    internal::ThrowNumpyValueFailureAt<T>(failure->second, header.type, header.swap_bytes,
                                          failure->first.first, failure->first.second,
                                          VELMOR_SOURCE_FILE, __func__, __LINE__);
  }
}

// Checks the header's sizes against the bytes the stream still holds, so that
// a corrupt header never causes a huge allocation.
void CheckNumpyDataSize(std::istream& stream, const NumpyHeader& header) {
  const uint64_t count = ElementCount(header);
  const uint64_t element_size = static_cast<uint64_t>(header.ElementSize());
  const bool overflow =
      count / static_cast<uint64_t>(header.cols) != static_cast<uint64_t>(header.rows) ||
      count > (uint64_t{1} << 62) / element_size;
  const std::optional<uint64_t> remaining = internal::RemainingStreamBytes(stream);
  if (overflow || (remaining && *remaining < count * element_size)) {
    throw std::length_error("unexpected end of file");
  }
}

// Header parsing helpers; they report failure by return value so that the
// messages carry ReadNumpyFileHeader's name.
std::size_t SkipBlanks(const std::string& text, std::size_t position) {
  while (position < text.size() && (text[position] == ' ' || text[position] == '\t')) ++position;
  return position;
}

std::string Trim(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return "";
  const std::size_t last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

std::optional<long long> ToLongLong(const std::string& text) {
  try {
    std::size_t used = 0;
    const long long value = std::stoll(text, &used);
    return value;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

// The matrix whose header has just been read from `stream`, in new storage.
template <typename T>
DenseMatrix<T> ReadMatrixFromNumpyFile(std::istream& stream, const NumpyHeader& header) {
  if (header.type == NumpyDataType::kByteString) {
    VELMOR_THROW(
        std::runtime_error,
        "Unsupported data type when reading numpy stream, the supported types are currently "
        "only int64, int32, float and double.");
  }
  try {
    CheckNumpyDataSize(stream, header);
  } catch (const std::length_error& e) {
    VELMOR_THROW(std::runtime_error, "Error reading matrix from numpy stream: '%s'.", e.what());
  }
  DenseMatrix<T> matrix;
  try {
    matrix.resize(header.rows, header.cols);
  } catch (const std::bad_alloc&) {
    VELMOR_THROW(
        std::runtime_error,
        "Unable to allocate matrix of size (rows,cols)=(%lu,%lu) for reading from numpy file.",
        static_cast<unsigned long>(header.rows), static_cast<unsigned long>(header.cols));
  }
  PrepareFreshMemory(matrix.data(), static_cast<std::size_t>(matrix.size()) * sizeof(T));
  ReadMatrixFromNumpyFile(stream, header, matrix.data());
  return matrix;
}

}  // namespace

int64_t NumpyHeader::ElementSize() const {
  switch (type) {
    case NumpyDataType::kInt32:
    case NumpyDataType::kFloat32:
      return 4;
    case NumpyDataType::kInt64:
    case NumpyDataType::kFloat64:
      return 8;
    case NumpyDataType::kByteString:
      return string_length;
  }
  return 0;
}

NumpyHeader ReadNumpyFileHeader(std::istream& stream, uint64_t* bytes_consumed) {
  return internal::ReadNumpyFileHeader(stream, bytes_consumed, false);
}

NumpyHeader internal::ReadNumpyFileHeader(std::istream& stream, uint64_t* bytes_consumed,
                                          bool allow_empty) {
  char prefix[10];
  errno = 0;
  if (!internal::ReadFully(stream, prefix, sizeof(prefix))) {
    const std::string error = errno != 0 ? internal::SystemErrorText() : "unexpected end of file";
    VELMOR_THROW(std::runtime_error, "Error reading matrix from numpy stream: %s.", error.c_str());
  }
  const std::size_t header_length =
      static_cast<unsigned char>(prefix[8]) |
      (static_cast<std::size_t>(static_cast<unsigned char>(prefix[9])) << 8);
  std::string text(header_length, '\0');
  errno = 0;
  if (!internal::ReadFully(stream, text.data(), header_length)) {
    const std::string error = errno != 0 ? internal::SystemErrorText() : "unexpected end of file";
    VELMOR_THROW(std::runtime_error, "Error reading matrix from numpy stream: %s.", error.c_str());
  }
  if (bytes_consumed != nullptr) *bytes_consumed += 10 + header_length;

  NumpyHeader header;
  // Each value follows its key and the next colon.
  auto value_position = [&text](const char* key) -> std::pair<std::size_t, std::string> {
    const std::size_t at = text.find(key);
    if (at == std::string::npos) return {std::string::npos, key};
    const std::size_t colon = text.find(':', at);
    if (colon == std::string::npos) return {std::string::npos, ":"};
    return {SkipBlanks(text, colon + 1), ""};
  };

  // descr
  auto [descr_at, descr_missing] = value_position("'descr'");
  if (descr_at == std::string::npos) {
    VELMOR_THROW(std::runtime_error,
                 "Unable to find string '%s' at position %ld in npy file header.",
                 descr_missing.c_str(), 0L);
  }
  if (descr_at >= text.size() || (text[descr_at] != '\'' && text[descr_at] != '"')) {
    VELMOR_THROW(std::runtime_error,
                 "Unable to find string '%s' at position %ld in npy file header.", "'",
                 static_cast<long>(descr_at));
  }
  const std::size_t descr_end = text.find(text[descr_at], descr_at + 1);
  if (descr_end == std::string::npos) {
    VELMOR_THROW(std::runtime_error,
                 "Unable to find string '%s' at position %ld in npy file header.", "'",
                 static_cast<long>(descr_at + 1));
  }
  const std::string descr = text.substr(descr_at + 1, descr_end - descr_at - 1);
  const char byte_order = descr.empty() ? '\0' : descr[0];
  const std::string code = descr.empty() ? "" : descr.substr(1);
  if (descr.size() > 2 && byte_order == '|' && descr[1] == 'S') {
    const std::string length_text = descr.substr(2);
    const std::optional<long long> length = ToLongLong(length_text);
    if (!length) {
      VELMOR_THROW(std::runtime_error, "Unable to convert '%s' to an integer in '%s'.",
                   length_text.c_str(), descr.c_str());
    }
    if (*length < 1 || *length > 65536) {
      VELMOR_THROW(
          std::runtime_error,
          "Unsupported data type from numpy stream, got '%s'. Supported types are i4, i8, f4 "
          "and f8.",
          descr.c_str());
    }
    header.type = NumpyDataType::kByteString;
    header.string_length = *length;
  } else {
    const bool known_order =
        byte_order == '<' || byte_order == '>' || byte_order == '|' || byte_order == '=';
    if (!known_order || (code != "i4" && code != "i8" && code != "f4" && code != "f8")) {
      VELMOR_THROW(
          std::runtime_error,
          "Unsupported data type from numpy stream, got '%s'. Supported types are i4, i8, f4 "
          "and f8.",
          code.c_str());
    }
    header.type = code == "i4"   ? NumpyDataType::kInt32
                  : code == "i8" ? NumpyDataType::kInt64
                  : code == "f4" ? NumpyDataType::kFloat32
                                 : NumpyDataType::kFloat64;
    header.swap_bytes = byte_order == '>';
  }

  // fortran_order
  auto [order_at, order_missing] = value_position("'fortran_order'");
  if (order_at == std::string::npos) {
    VELMOR_THROW(std::runtime_error,
                 "Unable to find string '%s' at position %ld in npy file header.",
                 order_missing.c_str(), 0L);
  }
  if (text.compare(order_at, 4, "True") == 0) {
    header.fortran_order = true;
  } else if (text.compare(order_at, 5, "False") == 0) {
    header.fortran_order = false;
  } else {
    VELMOR_THROW(std::runtime_error, "Problem reading fortran order from the header '%s'.",
                 text.c_str());
  }

  // shape
  auto [shape_at, shape_missing] = value_position("'shape'");
  if (shape_at == std::string::npos) {
    VELMOR_THROW(std::runtime_error,
                 "Unable to find string '%s' at position %ld in npy file header.",
                 shape_missing.c_str(), 0L);
  }
  if (shape_at >= text.size() || text[shape_at] != '(') {
    VELMOR_THROW(std::runtime_error,
                 "Unable to find string '%s' at position %ld in npy file header.", "(",
                 static_cast<long>(shape_at));
  }
  const std::size_t shape_end = text.find(')', shape_at);
  if (shape_end == std::string::npos) {
    VELMOR_THROW(std::runtime_error,
                 "Unable to find string '%s' at position %ld in npy file header.", ")",
                 static_cast<long>(shape_at));
  }
  const std::string shape = text.substr(shape_at + 1, shape_end - shape_at - 1);
  std::vector<std::string> items;
  for (std::size_t start = 0;;) {
    const std::size_t comma = shape.find(',', start);
    items.push_back(
        Trim(shape.substr(start, comma == std::string::npos ? std::string::npos : comma - start)));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  if (!items.empty() && items.back().empty()) items.pop_back();  // "(n,)" and "(r, c,)"
  if (items.empty() && header.type == NumpyDataType::kByteString) {
    // A scalar string, such as the format entry of a sparse archive.
    header.dimensions = 0;
    header.rows = 1;
    header.cols = 1;
    return header;
  }
  if (items.empty()) {
    VELMOR_THROW(
        std::runtime_error,
        "Problem reading matrix shape from the header '%s'. Only 1 dimensional vectors and 2 "
        "dimensional matrices are supported.",
        text.c_str());
  }
  if (items.size() > 2) {
    VELMOR_THROW(
        std::runtime_error,
        "Problem reading matrix shape from the header '%s'. Only 1 dimentional vectors and 2 "
        "dimensional matrices are supported.",
        text.c_str());
  }
  if (items.size() == 1) {
    const std::optional<long long> n = ToLongLong(items[0]);
    if (!n)
      VELMOR_THROW(std::runtime_error, "Unable to convert '%s' to an integer.", items[0].c_str());
    header.dimensions = 1;
    header.rows = *n;
    header.cols = 1;
  } else {
    const std::optional<long long> r = ToLongLong(items[0]);
    const std::optional<long long> c = ToLongLong(items[1]);
    if (!r || !c) {
      VELMOR_THROW(std::runtime_error, "Unable to convert '%s' or '%s' to a long long in '%s'.",
                   items[0].c_str(), items[1].c_str(), shape.c_str());
    }
    header.dimensions = 2;
    header.rows = *r;
    header.cols = *c;
  }
  if (header.rows < 0 || header.cols < 0) {
    VELMOR_THROW(
        std::runtime_error,
        "Problem with matrix shape from numpy stream, got negative dimension(s), (rows,cols) "
        "= (%lld, %lld).",
        static_cast<long long>(header.rows), static_cast<long long>(header.cols));
  }
  if (!allow_empty && (header.rows == 0 || header.cols == 0)) {
    VELMOR_THROW(
        std::runtime_error,
        "Problem with matrix shape from numpy stream, got zero(s), (rows,cols) = (%lu, %lu).",
        static_cast<unsigned long>(header.rows), static_cast<unsigned long>(header.cols));
  }
  return header;
}

template <typename T>
T ReadNextBinaryNumberFromNumpyStream(std::istream& stream, NumpyDataType type, bool swap_bytes) {
  // Refusals that depend on the types alone come first.
  if constexpr (std::is_same_v<T, double>) {
    if (type == NumpyDataType::kInt64) {
      VELMOR_THROW(std::runtime_error,
                   "Unable to read int64 npy file into 32-bit int matrix. Try, for example, "
                   "np.save('m.npy',m.astype('int32')).");
    }
  } else if constexpr (std::is_same_v<T, float>) {
    if (type == NumpyDataType::kInt32) {
      VELMOR_THROW(std::runtime_error,
                   "Unable to read an int32 npy file into a 32-bit float matrix. Try "
                   "np.save('m.npy',m.astype('float32')).");
    }
    if (type == NumpyDataType::kInt64) {
      VELMOR_THROW(std::runtime_error,
                   "Unable to read int64 npy file into 32-bit int matrix. Try, for example, "
                   "np.save('m.npy',m.astype('int32')).");
    }
  } else {
    if (type == NumpyDataType::kFloat32) {
      VELMOR_THROW(std::runtime_error,
                   "Unable to read float32 npy file into a 32-bit int matrix. Try "
                   "np.save('m.npy',m.astype('int32')).");
    }
    if (type == NumpyDataType::kFloat64) {
      VELMOR_THROW(std::runtime_error,
                   "Unable to read float64 npy file into 32-bit or 64-bit int matrix. Try, for "
                   "example, np.save('m.npy',m.astype('int32')).");
    }
  }
  if (type != NumpyDataType::kInt32 && type != NumpyDataType::kInt64 &&
      type != NumpyDataType::kFloat32 && type != NumpyDataType::kFloat64) {
    VELMOR_THROW(
        std::runtime_error,
        "Unsupported data type when reading numpy stream, the supported types are currently "
        "only int64, int32, float and double.");
  }
  char raw[8];
  const std::size_t size =
      (type == NumpyDataType::kInt32 || type == NumpyDataType::kFloat32) ? 4 : 8;
  errno = 0;
  if (!internal::ReadFully(stream, raw, size)) {
    const std::string error = errno != 0 ? internal::SystemErrorText() : "unexpected end of file";
    VELMOR_THROW(std::runtime_error, "Error reading matrix from numpy stream: %s.", error.c_str());
  }
  switch (type) {
    case NumpyDataType::kInt32:
      return static_cast<T>(LoadRaw<int32_t>(raw, swap_bytes));
    case NumpyDataType::kInt64: {
      const int64_t value = LoadRaw<int64_t>(raw, swap_bytes);
      if (value < std::numeric_limits<int32_t>::min() ||
          value > std::numeric_limits<int32_t>::max()) {
        VELMOR_THROW(std::runtime_error,
                     fmt::format("Unable to read int64 npy file into 32-bit int matrix due to "
                                 "overflow. Value {} can't be converted to an int32.",
                                 value));
      }
      return static_cast<T>(value);
    }
    case NumpyDataType::kFloat32:
    case NumpyDataType::kFloat64: {
      const double value = type == NumpyDataType::kFloat32
                               ? static_cast<double>(LoadRaw<float>(raw, swap_bytes))
                               : LoadRaw<double>(raw, swap_bytes);
      if (CheckForIEEEInfOnRead() && std::isinf(value)) internal::ThrowIEEEInf();
      if (CheckForIEEENaNOnRead() && std::isnan(value)) internal::ThrowIEEENaN();
      if constexpr (std::is_same_v<T, float>) {
        if (std::fabs(value) > 3.4028234663852886e38) {
          VELMOR_THROW(
              std::runtime_error,
              fmt::format("Unable to read float64 npy file into 32-bit float matrix due to "
                          "overflow. Value {} can't be converted to 32-bit float.",
                          value));
        }
      }
      return static_cast<T>(value);
    }
    case NumpyDataType::kByteString:
      break;
  }
  return T{};  // not reached
}

template <typename T>
DenseMatrix<T> ReadMatrixFromNumpyFile(std::istream& stream) {
  return ReadMatrixFromNumpyFile<T>(stream, ReadNumpyFileHeader(stream));
}

template <typename T>
DenseMatrix<T> ReadMatrixFromNumpyFile(const std::string& file_name) {
  DenseMatrix<T> matrix;
  ReadMatrixFromNumpyFile(file_name, matrix);
  return matrix;
}

template <typename T>
void ReadMatrixFromNumpyFile(const std::string& file_name, DenseMatrix<T>& matrix) {
  errno = 0;
  std::ifstream stream(file_name, std::ios_base::in | std::ios_base::binary);
  if (!stream) {
    const std::string error = internal::SystemErrorText();
    VELMOR_THROW(std::runtime_error, "Error reading matrix from numpy stream: %s.", error.c_str());
  }
  const NumpyHeader header = ReadNumpyFileHeader(stream);
  if (header.rows == matrix.rows() && header.cols == matrix.cols() &&
      header.type != NumpyDataType::kByteString) {
    try {
      CheckNumpyDataSize(stream, header);
    } catch (const std::length_error& e) {
      VELMOR_THROW(std::runtime_error, "Error reading matrix from numpy stream: '%s'.", e.what());
    }
    try {
      ReadMatrixFromNumpyFile(stream, header, matrix.data());
    } catch (...) {
      matrix.resize(0, 0);
      throw;
    }
    return;
  }
  DenseMatrix<T> result = ReadMatrixFromNumpyFile<T>(stream, header);
  matrix.swap(result);
}

template <typename T>
DenseMatrix<T> ReadRowMajorMatchingEndian2DNumpyMatrixFileFromMemoryBuffer(const char* buffer,
                                                                           std::size_t size) {
  internal::MemoryStreamBuf memory(buffer, size);
  std::istream stream(&memory);
  uint64_t header_bytes = 0;
  const NumpyHeader header = ReadNumpyFileHeader(stream, &header_bytes);
  if (header.type != OwnType<T>() || header.swap_bytes ||
      (header.fortran_order && header.rows > 1 && header.cols > 1)) {
    VELMOR_THROW(std::runtime_error,
                 "Matrix must be row-major, %s endian, and float32, float64, or int32 type",
                 "little");
  }
  try {
    CheckNumpyDataSize(stream, header);
  } catch (const std::length_error& e) {
    VELMOR_THROW(std::runtime_error, "Error reading matrix from numpy stream: '%s'.", e.what());
  }
  const int64_t rows = header.rows;
  const int64_t cols = header.cols;
  const T* values = reinterpret_cast<const T*>(buffer + header_bytes);
  std::unique_ptr<T[]> aligned;
  if (reinterpret_cast<uintptr_t>(values) % alignof(T) != 0) {
    aligned.reset(new T[static_cast<std::size_t>(rows * cols)]);
    std::memcpy(aligned.get(), values, static_cast<std::size_t>(rows * cols) * sizeof(T));
    values = aligned.get();
  }
  const std::size_t count = static_cast<std::size_t>(rows * cols);
  const std::size_t bad = internal::FindFirstIEEESpecial(values, count, CheckForIEEENaNOnRead(),
                                                         CheckForIEEEInfOnRead());
  if (bad != count) {
    internal::ThrowNumpyValueFailureAt<T>(reinterpret_cast<const char*>(values + bad), header.type,
                                          false, static_cast<int64_t>(bad) / cols,
                                          static_cast<int64_t>(bad) % cols, VELMOR_SOURCE_FILE,
                                          __func__, __LINE__);
  }
  DenseMatrix<T> matrix(rows, cols);
  for (int64_t first = 0; first < rows; first += kMinBlockRows) {
    const int64_t n_rows = std::min(kMinBlockRows, rows - first);
    internal::CopyRowMajorRowsIntoColumnMajor(values + first * cols, n_rows, cols, matrix.data(),
                                              rows, first);
  }
  return matrix;
}

template <typename T>
void WriteMatrixToNumpyFile(std::ostream& stream, const DenseMatrix<T>& matrix,
                            bool fortran_order) {
  const std::string dictionary = std::string("{'descr': '") + OwnDescr<T>() +
                                 (fortran_order ? "', 'fortran_order': True, 'shape': ("
                                                : "', 'fortran_order': False, 'shape': (") +
                                 std::to_string(matrix.rows()) + ", " +
                                 std::to_string(matrix.cols()) + "), }";
  const std::size_t total = (dictionary.size() + 11 + 15) / 16 * 16;
  const std::size_t header_length = total - 10;
  std::string header;
  header.reserve(total);
  header += '\x93';
  header += "NUMPY";
  header += '\x01';
  header += '\x00';
  header += static_cast<char>(header_length & 0xff);
  header += static_cast<char>((header_length >> 8) & 0xff);
  header += dictionary;
  header.append(total - dictionary.size() - 11, ' ');
  header += '\n';
  errno = 0;
  stream.write(header.data(), static_cast<std::streamsize>(header.size()));
  if (!stream) {
    const std::string error = internal::SystemErrorText();
    VELMOR_THROW(std::runtime_error, "Unable to write to numpy stream: %s.", error.c_str());
  }
  const int64_t rows = matrix.rows();
  const int64_t cols = matrix.cols();
  if (fortran_order || rows == 1 || cols == 1) {
    stream.write(reinterpret_cast<const char*>(matrix.data()),
                 static_cast<std::streamsize>(matrix.size() * sizeof(T)));
  } else if (rows > 0 && cols > 0) {
    // Row by row through a cache-sized block.
    const int64_t block_rows = std::max<int64_t>(
        1, static_cast<int64_t>(kPieceBytes / (static_cast<std::size_t>(cols) * sizeof(T))));
    std::vector<T> block(static_cast<std::size_t>(std::min(block_rows, rows) * cols));
    for (int64_t first = 0; first < rows && stream; first += block_rows) {
      const int64_t n_rows = std::min(block_rows, rows - first);
      for (int64_t j = 0; j < cols; ++j) {
        const T* in = matrix.data() + j * rows + first;
        T* out = block.data() + j;
        for (int64_t r = 0; r < n_rows; ++r) out[r * cols] = in[r];
      }
      stream.write(
          reinterpret_cast<const char*>(block.data()),
          static_cast<std::streamsize>(static_cast<std::size_t>(n_rows * cols) * sizeof(T)));
    }
  }
  stream.flush();
  if (!stream) {
    VELMOR_THROW(std::runtime_error, "Unable to write binary matrix part of numpy file write.");
  }
}

template <typename T>
void WriteMatrixToNumpyFile(const std::string& file_name, const DenseMatrix<T>& matrix,
                            bool fortran_order) {
  // Opening reports like a failed first write, closing like a failed data
  // part; the stream writer reports its own failures.
  std::optional<AtomicOutputFile> file;
  try {
    file.emplace(file_name);
  } catch (const std::system_error& error) {
    VELMOR_THROW(std::runtime_error, "Unable to write to numpy stream: %s.", error.what());
  }
  errno = 0;
  try {
    WriteMatrixToNumpyFile(file->Stream(), matrix, fortran_order);
  } catch (const std::runtime_error& failure) {
    // The writer's report, with the system's reason (disk full, ...) under it.
    const int error = errno;
    if (error == 0) throw;
    try {
      throw std::system_error(error, std::generic_category());
    } catch (...) {
      std::throw_with_nested(failure);
    }
  }
  try {
    file->Commit();
  } catch (const std::system_error&) {
    VELMOR_THROW_NESTED(std::runtime_error,
                        "Unable to write binary matrix part of numpy file write.");
  }
}

namespace internal {

const char* NumpyTypeName(NumpyDataType type) {
  switch (type) {
    case NumpyDataType::kInt32:
      return "int32";
    case NumpyDataType::kInt64:
      return "int64";
    case NumpyDataType::kFloat32:
      return "float32";
    case NumpyDataType::kFloat64:
      return "float64";
    case NumpyDataType::kByteString:
      return "bytes";
  }
  return "unknown";
}

template <typename T>
std::size_t ConvertNumpyValues(const char* raw, std::size_t count, NumpyDataType type,
                               bool swap_bytes, T* out) {
  if (!Convertible<T>(type)) return 0;
  if (type == OwnType<T>() && !swap_bytes) {
    if (reinterpret_cast<const char*>(out) != raw) std::memcpy(out, raw, count * sizeof(T));
    return FindFirstIEEESpecial(out, count, CheckForIEEENaNOnRead(), CheckForIEEEInfOnRead());
  }
  switch (type) {
    case NumpyDataType::kInt32:
      return ConvertLoop<T, int32_t>(raw, count, swap_bytes, out);
    case NumpyDataType::kInt64:
      return ConvertLoop<T, int64_t>(raw, count, swap_bytes, out);
    case NumpyDataType::kFloat32:
      return ConvertLoop<T, float>(raw, count, swap_bytes, out);
    case NumpyDataType::kFloat64:
      return ConvertLoop<T, double>(raw, count, swap_bytes, out);
    case NumpyDataType::kByteString:
      break;
  }
  return 0;
}

template <typename T>
void ThrowNumpyValueFailure(const char* raw, NumpyDataType type, bool swap_bytes) {
  const std::size_t size =
      (type == NumpyDataType::kInt32 || type == NumpyDataType::kFloat32) ? 4 : 8;
  MemoryStreamBuf memory(raw, size);
  std::istream stream(&memory);
  (void)ReadNextBinaryNumberFromNumpyStream<T>(stream, type, swap_bytes);
  throw std::logic_error("A numpy value reported as failing converted without failure.");
}

template <typename T>
void ThrowNumpyValueFailureAt(const char* raw, NumpyDataType type, bool swap_bytes, int64_t row,
                              int64_t col, const char* file, const char* function, unsigned line) {
  try {
    ThrowNumpyValueFailure<T>(raw, type, swap_bytes);
  } catch (...) {
    std::throw_with_nested(std::runtime_error(exception::MakeSourceMessage(
        file, function, line,
        fmt::format("Unable to read and convert data type {} from npy matrix at row,col {},{}",
                    NumpyTypeName(type), row, col))));
  }
}

}  // namespace internal

#define VELMOR_INSTANTIATE_DENSE_NUMPY(T)                                                       \
  template T ReadNextBinaryNumberFromNumpyStream<T>(std::istream&, NumpyDataType, bool);        \
  template DenseMatrix<T> ReadMatrixFromNumpyFile<T>(const std::string&);                       \
  template DenseMatrix<T> ReadMatrixFromNumpyFile<T>(std::istream&);                            \
  template void ReadMatrixFromNumpyFile<T>(const std::string&, DenseMatrix<T>&);                \
  template DenseMatrix<T> ReadRowMajorMatchingEndian2DNumpyMatrixFileFromMemoryBuffer<T>(       \
      const char*, std::size_t);                                                                \
  template void WriteMatrixToNumpyFile<T>(std::ostream&, const DenseMatrix<T>&, bool);          \
  template void WriteMatrixToNumpyFile<T>(const std::string&, const DenseMatrix<T>&, bool);     \
  template std::size_t internal::ConvertNumpyValues<T>(const char*, std::size_t, NumpyDataType, \
                                                       bool, T*);                               \
  template void internal::ThrowNumpyValueFailure<T>(const char*, NumpyDataType, bool);          \
  template void internal::ThrowNumpyValueFailureAt<T>(                                          \
      const char*, NumpyDataType, bool, int64_t, int64_t, const char*, const char*, unsigned);

VELMOR_INSTANTIATE_DENSE_NUMPY(int32_t)
VELMOR_INSTANTIATE_DENSE_NUMPY(float)
VELMOR_INSTANTIATE_DENSE_NUMPY(double)

#undef VELMOR_INSTANTIATE_DENSE_NUMPY

}  // namespace velmor::matrixio
