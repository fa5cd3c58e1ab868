#include "io/SparseNumpyFileIOSupport.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <new>
#include <optional>
#include <stdexcept>

#include "io/DenseNumpyFileIOSupport.h"
#include "io/MatrixIOInternal.h"
#include "io/NumpyArrayReading.h"
#include "utils/error_messages.h"

namespace velmor::matrixio {
namespace {

constexpr uint32_t kLocalHeaderSignature = 0x04034b50;  // "PK" 3 4, little-endian
constexpr uint16_t kGeneralPurposeDataDescriptor = 0x0008;

uint16_t U16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t U32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
uint64_t U64(const unsigned char* p) { return U32(p) | (static_cast<uint64_t>(U32(p + 4)) << 32); }

std::string ErrorText() {
  return errno != 0 ? internal::SystemErrorText() : std::string("unexpected end of file");
}

// One array of the archive: its header and its stored values, undecoded.
struct NpzArray {
  NumpyHeader header;
  std::vector<char> raw;
  std::size_t Count() const { return static_cast<std::size_t>(header.rows * header.cols); }
};

// Reads the .npy file stored in `entry` and leaves the stream after the
// entry. Named after the public function so that its messages carry that name.
NpzArray ReadSparseMatrixFromScipyNPZFile(std::istream& stream, const NpzEntryHeader& entry) {
  const std::string& name = entry.variable_name;
  const std::optional<uint64_t> remaining = internal::RemainingStreamBytes(stream);
  if (remaining && *remaining < entry.data_size) {
    VELMOR_THROW(std::runtime_error, "Error reading from npz stream, variable name %s: %s.",
                 name.c_str(), "the entry runs past the end of the archive");
  }
  NpzArray array;
  uint64_t header_bytes = 0;
  try {
    array.header = internal::ReadNumpyFileHeader(stream, &header_bytes, true);
  } catch (...) {
    VELMOR_THROW_NESTED(std::runtime_error, "Error reading from npz stream, variable name %s: %s.",
                        name.c_str(), "bad array header");
  }
  const NumpyHeader& header = array.header;
  if (header.dimensions == 2 && header.rows != 1) {
    VELMOR_THROW(
        std::runtime_error,
        fmt::format("Unexpected Scipy sparse dictionary npy array entry of dimensions {} x {} "
                    "embedded, must be a row vector.",
                    header.rows, header.cols));
  }
  const uint64_t count = static_cast<uint64_t>(header.rows) * static_cast<uint64_t>(header.cols);
  const uint64_t element_size = static_cast<uint64_t>(header.ElementSize());
  if (header_bytes > entry.data_size || count > (entry.data_size - header_bytes) / element_size) {
    if (name == "indices.npy") {
      VELMOR_THROW(std::runtime_error,
                   "Error reading %lu bytes from npz stream, variable name indices.npy: %s.",
                   static_cast<unsigned long>(count * element_size),
                   "the array is larger than its entry");
    }
    VELMOR_THROW(std::runtime_error, "Error reading from npz stream, variable name %s: %s.",
                 name.c_str(), "the array is larger than its entry");
  }
  const std::size_t payload = static_cast<std::size_t>(count * element_size);
  try {
    array.raw.resize(payload);
  } catch (const std::bad_alloc&) {
    if (name == "indices.npy") {
      VELMOR_THROW(
          std::runtime_error,
          fmt::format("Unable to allocate memory for {} 32-bit csr_column_indices.", count));
    }
    throw;
  }
  errno = 0;
  if (!internal::ReadFully(stream, array.raw.data(), payload) ||
      !internal::SkipBytes(stream, entry.data_size - header_bytes - payload)) {
    const std::string error = ErrorText();
    if (name == "indices.npy") {
      VELMOR_THROW(std::runtime_error,
                   "Error reading %lu bytes from npz stream, variable name indices.npy: %s.",
                   static_cast<unsigned long>(payload), error.c_str());
    }
    VELMOR_THROW(std::runtime_error, "Error reading from npz stream, variable name %s: %s.",
                 name.c_str(), error.c_str());
  }
  return array;
}

// Whether the CSR column indices of every row are strictly increasing, so the
// arrays can be taken as they are.
bool IsCanonicalCSR(const std::vector<int32_t>& indptr, const std::vector<int32_t>& indices) {
  for (std::size_t r = 0; r + 1 < indptr.size(); ++r) {
    for (int32_t k = indptr[r] + 1; k < indptr[r + 1]; ++k) {
      if (indices[k - 1] >= indices[k]) return false;
    }
  }
  return true;
}

}  // namespace

NpzEntryHeader ReadNextNpzFileHeader(std::istream& stream) {
  unsigned char fixed[30];
  NpzEntryHeader entry;
  errno = 0;
  stream.read(reinterpret_cast<char*>(fixed), sizeof(fixed));
  const std::streamsize got = stream.gcount();
  if (got >= 4 && U32(fixed) != kLocalHeaderSignature) {
    entry.end_of_entries = true;
    return entry;
  }
  if (got != static_cast<std::streamsize>(sizeof(fixed))) {
    const std::string error = ErrorText();
    VELMOR_THROW(std::runtime_error, "Error reading the first 30 bytes from npz stream: %s.",
                 error.c_str());
  }
  const uint16_t version_needed = U16(fixed + 4);
  const uint16_t flags = U16(fixed + 6);
  const uint16_t compression = U16(fixed + 8);
  const uint32_t compressed_size = U32(fixed + 18);
  const uint32_t uncompressed_size = U32(fixed + 22);
  const uint16_t name_length = U16(fixed + 26);
  const uint16_t extra_length = U16(fixed + 28);
  if (compression != 0 || compressed_size != uncompressed_size) {
    const std::string error = internal::SystemErrorText();
    VELMOR_THROW(
        std::runtime_error,
        "Error reading from npz stream, only support uncompressed files.Compression Mode: %d, "
        "Compressed Size: %u, Uncompressed Size %u, error code: %s.",
        static_cast<int>(compression), compressed_size, uncompressed_size, error.c_str());
  }
  entry.variable_name.assign(name_length, '\0');
  errno = 0;
  if (!internal::ReadFully(stream, entry.variable_name.data(), name_length)) {
    const std::string error = ErrorText();
    const std::string partial =
        entry.variable_name.substr(0, static_cast<std::size_t>(stream.gcount()));
    VELMOR_THROW(
        std::runtime_error,
        "Error reading from npz stream when reading variable name '%s' with specified length "
        "%d: %s.",
        partial.c_str(), static_cast<int>(name_length), error.c_str());
  }
  entry.data_size = uncompressed_size;
  uint32_t extra_left = extra_length;
  if (version_needed > 44) {
    const std::string error = internal::SystemErrorText();
    if (uncompressed_size != 0xffffffffu) {
      VELMOR_THROW(
          std::runtime_error,
          "An .npz file is corrupted: zip64 format is used but the file length in local header "
          "is %u but not 0xffffffff: %s.",
          uncompressed_size, error.c_str());
    }
    if (extra_length < 20) {
      VELMOR_THROW(
          std::runtime_error,
          "An .npz file is corrupted: zip64 format is used but the extra field length in local "
          "header is %d, which should be at least 20: %s.",
          static_cast<int>(extra_length), error.c_str());
    }
    unsigned char zip64[20];
    errno = 0;
    if (!internal::ReadFully(stream, reinterpret_cast<char*>(zip64), sizeof(zip64))) {
      const std::string read_error = ErrorText();
      VELMOR_THROW(std::runtime_error,
                   "Error reading from npz stream when skipping extra fields in the header: %s.",
                   read_error.c_str());
    }
    const uint16_t identifier = U16(zip64);
    if (identifier != 1) {
      VELMOR_THROW(
          std::runtime_error,
          "An .npz file is corrupted: zip64 format is used but the extra field identifier code "
          "is %d, which should be 1: %s.",
          static_cast<int>(identifier), error.c_str());
    }
    const uint64_t zip64_uncompressed = U64(zip64 + 4);
    const uint64_t zip64_compressed = U64(zip64 + 12);
    if (zip64_uncompressed != zip64_compressed) {
      VELMOR_THROW(
          std::runtime_error,
          "An .npz file corrupted: zip64 format is used, npz file should be uncompressed, but "
          "getzip64 Compressed Size: %lu different from the zip64 Uncompressed Size: %lu. %s.",
          static_cast<unsigned long>(zip64_compressed),
          static_cast<unsigned long>(zip64_uncompressed), error.c_str());
    }
    entry.data_size = zip64_uncompressed;
    extra_left -= 20;
  }
  errno = 0;
  if (!internal::SkipBytes(stream, extra_left)) {
    const std::string error = ErrorText();
    VELMOR_THROW(std::runtime_error,
                 "Error reading from npz stream when skipping extra fields in the header: %s.",
                 error.c_str());
  }
  if ((flags & kGeneralPurposeDataDescriptor) != 0 && entry.data_size == 0) {
    // The sizes follow the data, so the entry's end cannot be known here.
    VELMOR_THROW(
        std::runtime_error,
        "Error reading from npz stream, entry '%s' has its sizes after its data, which is not "
        "supported.",
        entry.variable_name.c_str());
  }
  return entry;
}

template <typename T>
std::vector<SparseTriplet<T>> LoadTripletsFromCOOAndFreeArrays(std::vector<int32_t>& row,
                                                               std::vector<int32_t>& col,
                                                               std::vector<T>& data) {
  if (row.size() != col.size() || row.size() != data.size()) {
    VELMOR_THROW(
        std::runtime_error,
        fmt::format("Error constructing from a scipy coo format sparse matrix.The row and col "
                    "index and data vector sizes should be equal but got: {} {} {}.",
                    row.size(), col.size(), data.size()));
  }
  std::vector<SparseTriplet<T>> triplets;
  triplets.reserve(row.size());
  for (std::size_t k = 0; k < row.size(); ++k) triplets.emplace_back(row[k], col[k], data[k]);
  std::vector<int32_t>().swap(row);
  std::vector<int32_t>().swap(col);
  std::vector<T>().swap(data);
  return triplets;
}

template <typename T>
SparseMatrix<T> ReadSparseMatrixFromScipyNPZFile(std::istream& stream) {
  std::optional<std::string> format;
  std::optional<std::pair<int64_t, int64_t>> shape;
  std::optional<NpzArray> data;
  std::optional<NpzArray> indices, indptr, row, col;

  uint64_t archive_bytes = 0;  // bytes of the entries read, a bound for the shape
  for (;;) {
    const NpzEntryHeader entry = ReadNextNpzFileHeader(stream);
    if (entry.end_of_entries) break;
    archive_bytes += entry.data_size + 30 + entry.variable_name.size();
    const std::string& name = entry.variable_name;
    if (name != "format.npy" && name != "shape.npy" && name != "data.npy" &&
        name != "indices.npy" && name != "indptr.npy" && name != "row.npy" && name != "col.npy") {
      errno = 0;
      if (!internal::SkipBytes(stream, entry.data_size)) {
        const std::string error = ErrorText();
        VELMOR_THROW(std::runtime_error, "Error reading from npz stream: %s.", error.c_str());
      }
      continue;
    }
    NpzArray array = ReadSparseMatrixFromScipyNPZFile(stream, entry);
    const NumpyHeader& header = array.header;
    if (name == "format.npy") {
      if (header.type != NumpyDataType::kByteString || header.string_length != 3 ||
          array.Count() != 1) {
        VELMOR_THROW(
            std::runtime_error,
            "Error reading Scipy sparse matrix, the format string should be of length 3 but get "
            "length %lu.",
            static_cast<unsigned long>(header.type == NumpyDataType::kByteString
                                           ? header.string_length * array.Count()
                                           : array.raw.size()));
      }
      format = std::string(array.raw.data(), 3);
    } else if (name == "shape.npy") {
      if (header.type != NumpyDataType::kInt64) {
        VELMOR_THROW(
            std::runtime_error,
            "Error reading Scipy sparse matrix, the shape.npy should be of type int64 but got %s.",
            internal::NumpyTypeName(header.type));
      }
      if (array.Count() != 2) {
        VELMOR_THROW(std::runtime_error,
                     "Error reading from npz stream, variable name shape.npy: %s.",
                     "the shape should hold two entries");
      }
      int64_t values[2];
      for (int i = 0; i < 2; ++i) {
        uint64_t bits;
        std::memcpy(&bits, array.raw.data() + 8 * i, 8);
        if (header.swap_bytes) bits = __builtin_bswap64(bits);
        std::memcpy(&values[i], &bits, 8);
      }
      shape.emplace(values[0], values[1]);
    } else if (name == "data.npy") {
      if (header.type == NumpyDataType::kByteString) {
        VELMOR_THROW(
            std::runtime_error,
            "Unsupported data type '%s' for 'data.npy' in when reading zipped archive, the "
            "supported types are int, float and double.",
            internal::NumpyTypeName(header.type));
      }
      data = std::move(array);
    } else {
      if (header.type != NumpyDataType::kInt32 && header.type != NumpyDataType::kInt64) {
        if (name == "indices.npy") {
          VELMOR_THROW(
              std::runtime_error,
              "Error reading Scipy sparse CSR matrix, 'indices.npy' should be of type int32 or "
              "int64 but got %s",
              internal::NumpyTypeName(header.type));
        }
        VELMOR_THROW(
            std::runtime_error,
            "Error reading Scipy sparse matrix, '%s' should be of type int32 or int64 but got %s.",
            name.c_str(), internal::NumpyTypeName(header.type));
      }
      std::optional<NpzArray>& slot = name == "indices.npy"  ? indices
                                      : name == "indptr.npy" ? indptr
                                      : name == "row.npy"    ? row
                                                             : col;
      slot = std::move(array);
    }
  }

  auto require = [](bool present, const char* what) {
    if (!present) throw std::runtime_error(what);
  };
  try {
    require(format.has_value(), "the archive holds no 'format.npy'");
    require(shape.has_value(), "the archive holds no 'shape.npy'");
    require(data.has_value(), "the archive holds no 'data.npy'");
    if (*format == "csr") {
      require(indices.has_value(), "the archive holds no 'indices.npy'");
      require(indptr.has_value(), "the archive holds no 'indptr.npy'");
    } else if (*format == "coo") {
      require(row.has_value(), "the archive holds no 'row.npy'");
      require(col.has_value(), "the archive holds no 'col.npy'");
    }
  } catch (const std::runtime_error& e) {
    VELMOR_THROW(std::runtime_error, "Error reading from npz stream: %s.", e.what());
  }
  if (*format != "csr" && *format != "coo") {
    VELMOR_THROW(std::runtime_error,
                 "Unsupported sparse matrix format: %s, the supported ones are csr and coo.",
                 format->c_str());
  }
  const bool csr = *format == "csr";
  if (csr && (indices->header.type == NumpyDataType::kInt64 ||
              indptr->header.type == NumpyDataType::kInt64)) {
    VELMOR_THROW(
        std::runtime_error,
        "Processing Scipy sparse input CSR matrix with 64-bit indices but velmor is compiled with "
        "32-bit sparse matrix indices. Try rebuilding and recompiling with 'cmake "
        "-DEIGEN_BIG_SPARSE=ON ...'.");
  }
  if (!csr &&
      (row->header.type == NumpyDataType::kInt64 || col->header.type == NumpyDataType::kInt64)) {
    VELMOR_THROW(
        std::runtime_error,
        "Processing Scipy COO sparse input matrix with 64-bit indices but velmor is compiled with "
        "32-bit sparse matrix indices. Try rebuilding and recompiling with 'cmake "
        "-DEIGEN_BIG_SPARSE=ON ...'.");
  }
  const int64_t rows = shape->first;
  const int64_t cols = shape->second;
  // Beyond 2^24 rows or columns, a shape must be backed by a file of
  // comparable size: a corrupt shape never makes the per-row or per-column
  // arrays of the assembly allocate gigabytes.
  const int64_t unbacked_limit =
      std::max<int64_t>(int64_t{1} << 24, static_cast<int64_t>(4 * archive_bytes));
  if (rows < 0 || cols < 0 || rows > std::numeric_limits<int32_t>::max() ||
      cols > std::numeric_limits<int32_t>::max() || rows > unbacked_limit ||
      cols > unbacked_limit) {
    VELMOR_THROW(
        std::runtime_error,
        "Unable to allocate sparse matrix of size (rows,cols)=(%lu,%lu) for reading from NPZ file.",
        static_cast<unsigned long>(rows), static_cast<unsigned long>(cols));
  }

  // Values, converted and checked.
  std::vector<T> values(data->Count());
  const std::size_t bad = internal::ConvertNumpyValues(
      data->raw.data(), values.size(), data->header.type, data->header.swap_bytes, values.data());
  if (bad != values.size()) {
    try {
      internal::ThrowNumpyValueFailure<T>(data->raw.data() + bad * data->header.ElementSize(),
                                          data->header.type, data->header.swap_bytes);
    } catch (...) {
      VELMOR_THROW_NESTED(std::runtime_error,
                          "Error reading from npz stream, variable name data.npy: %s.",
                          "a value cannot be converted");
    }
  }
  std::vector<char>().swap(data->raw);

  auto to_indices = [](NpzArray& array) {
    std::vector<int32_t> out(array.Count());
    internal::ConvertNumpyValues(array.raw.data(), out.size(), array.header.type,
                                 array.header.swap_bytes, out.data());
    std::vector<char>().swap(array.raw);
    return out;
  };

  SparseMatrix<T> matrix;
  if (csr) {
    std::vector<int32_t> pointers = to_indices(*indptr);
    std::vector<int32_t> columns;
    try {
      columns = to_indices(*indices);
    } catch (const std::bad_alloc&) {
      VELMOR_THROW(std::runtime_error,
                   fmt::format("Unable to allocate memory for {} 32-bit csr_column_indices.",
                               indices->Count()));
    }
    bool consistent = pointers.size() == static_cast<std::size_t>(rows) + 1 &&
                      pointers.front() == 0 &&
                      static_cast<std::size_t>(pointers.back()) == columns.size() &&
                      columns.size() == values.size();
    for (std::size_t r = 0; consistent && r + 1 < pointers.size(); ++r) {
      consistent = pointers[r] <= pointers[r + 1];
    }
    for (std::size_t k = 0; consistent && k < columns.size(); ++k) {
      consistent = columns[k] >= 0 && columns[k] < cols;
    }
    if (!consistent) {
      VELMOR_THROW(
          std::runtime_error,
          "Error reading Scipy sparse CSR matrix, 'indptr.npy', 'indices.npy' and 'data.npy' do "
          "not describe a %ld x %ld matrix.",
          static_cast<long>(rows), static_cast<long>(cols));
    }
    try {
      if (IsCanonicalCSR(pointers, columns)) {
        const Eigen::Map<const Eigen::SparseMatrix<T, Eigen::RowMajor, int32_t>> by_rows(
            rows, cols, static_cast<int64_t>(values.size()), pointers.data(), columns.data(),
            values.data());
        matrix = by_rows;
      } else {
        std::vector<SparseTriplet<T>> triplets;
        triplets.reserve(values.size());
        for (int64_t r = 0; r < rows; ++r) {
          for (int32_t k = pointers[r]; k < pointers[r + 1]; ++k) {
            triplets.emplace_back(static_cast<int32_t>(r), columns[k], values[k]);
          }
        }
        matrix.resize(rows, cols);
        matrix.setFromTriplets(triplets.begin(), triplets.end());
      }
    } catch (const std::bad_alloc&) {
      VELMOR_THROW(std::runtime_error,
                   "Unable to allocate sparse matrix of size (rows,cols)=(%lu,%lu) for reading "
                   "from NPZ file.",
                   static_cast<unsigned long>(rows), static_cast<unsigned long>(cols));
    }
  } else {
    std::vector<int32_t> row_indices = to_indices(*row);
    std::vector<int32_t> col_indices = to_indices(*col);
    std::vector<SparseTriplet<T>> triplets =
        LoadTripletsFromCOOAndFreeArrays(row_indices, col_indices, values);
    for (const SparseTriplet<T>& t : triplets) {
      if (t.row() < 0 || t.row() >= rows || t.col() < 0 || t.col() >= cols) {
        VELMOR_THROW(std::runtime_error,
                     "Error reading Scipy sparse COO matrix, entry (%d,%d) lies outside the %ld x "
                     "%ld matrix.",
                     t.row(), t.col(), static_cast<long>(rows), static_cast<long>(cols));
      }
    }
    try {
      matrix.resize(rows, cols);
      matrix.setFromTriplets(triplets.begin(), triplets.end());
    } catch (const std::bad_alloc&) {
      VELMOR_THROW(std::runtime_error,
                   "Unable to allocate sparse matrix of size (rows,cols)=(%lu,%lu) for reading "
                   "from NPZ file.",
                   static_cast<unsigned long>(rows), static_cast<unsigned long>(cols));
    }
  }
  return matrix;
}

template <typename T>
SparseMatrix<T> ReadSparseMatrixFromScipyNPZFile(const std::string& file_name) {
  errno = 0;
  std::ifstream stream(file_name, std::ios_base::in | std::ios_base::binary);
  if (!stream) {
    const std::string error = internal::SystemErrorText();
    VELMOR_THROW(std::runtime_error, "Error reading sparse matrix from npz file '%s': %s.",
                 file_name.c_str(), error.c_str());
  }
  return ReadSparseMatrixFromScipyNPZFile<T>(stream);
}

#define VELMOR_INSTANTIATE_SPARSE_NUMPY(T)                                          \
  template SparseMatrix<T> ReadSparseMatrixFromScipyNPZFile<T>(std::istream&);      \
  template SparseMatrix<T> ReadSparseMatrixFromScipyNPZFile<T>(const std::string&); \
  template std::vector<SparseTriplet<T>> LoadTripletsFromCOOAndFreeArrays<T>(       \
      std::vector<int32_t>&, std::vector<int32_t>&, std::vector<T>&);

VELMOR_INSTANTIATE_SPARSE_NUMPY(int32_t)
VELMOR_INSTANTIATE_SPARSE_NUMPY(float)
VELMOR_INSTANTIATE_SPARSE_NUMPY(double)

#undef VELMOR_INSTANTIATE_SPARSE_NUMPY

}  // namespace velmor::matrixio
