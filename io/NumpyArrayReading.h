#ifndef VELMOR_IO_NUMPYARRAYREADING_H_
#define VELMOR_IO_NUMPYARRAYREADING_H_

// Block conversion of .npy values, shared by the .npy and .npz readers; not
// part of the library's interface.

#include <cstddef>

#include "io/DenseNumpyFileIOSupport.h"

namespace velmor::matrixio::internal {

// ReadNumpyFileHeader, which with `allow_empty` accepts a zero in the shape
// (the empty arrays of an archive).
NumpyHeader ReadNumpyFileHeader(std::istream& stream, uint64_t* bytes_consumed, bool allow_empty);

// "int32", "int64", "float32", "float64" or "bytes".
const char* NumpyTypeName(NumpyDataType type);

// Converts `count` raw values of file type `type` into T with the rules of
// ReadNextBinaryNumberFromNumpyStream (switches included). Returns `count`,
// or the index of the first value that fails; values before it are stored.
// `raw` and `out` may be the same memory when the types have equal size.
template <typename T>
std::size_t ConvertNumpyValues(const char* raw, std::size_t count, NumpyDataType type,
                               bool swap_bytes, T* out);

// Throws the failure of the single raw value at `raw` as
// ReadNextBinaryNumberFromNumpyStream reports it.
template <typename T>
[[noreturn]] void ThrowNumpyValueFailure(const char* raw, NumpyDataType type, bool swap_bytes);

// Throws "Unable to read and convert data type <type> from npy matrix at
// row,col <row>,<col>" located at file/function/line (the reader that found
// it), with the failure of the value at `raw` as its nested cause.
template <typename T>
[[noreturn]] void ThrowNumpyValueFailureAt(const char* raw, NumpyDataType type, bool swap_bytes,
                                           int64_t row, int64_t col, const char* file,
                                           const char* function, unsigned line);

}  // namespace velmor::matrixio::internal

#endif  // VELMOR_IO_NUMPYARRAYREADING_H_
