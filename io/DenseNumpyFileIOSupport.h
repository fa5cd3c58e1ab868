#ifndef VELMOR_IO_DENSENUMPYFILEIOSUPPORT_H_
#define VELMOR_IO_DENSENUMPYFILEIOSUPPORT_H_

// Dense matrices in the NumPy .npy format, for T = int32_t, float, double.
//
// Written files are format version 1.0: the byte 0x93, "NUMPY", bytes 1 and 0,
// the header length H (unsigned 16-bit little-endian), then H bytes of header
// text: "{'descr': '<f4', 'fortran_order': False, 'shape': (r, c), }" (descr
// "<i4", "<f4" or "<f8"; True for column-major output), blanks and one
// newline, so that 10 + H is the smallest multiple of 16 at least the
// dictionary's length plus 11. Then the values, little-endian, row by row
// (fortran order False) or column by column (True).
//
// Read files may hold i4, i8, f4 or f8 values of either byte order, in either
// order, with a shape of one or two dimensions. A one-dimensional array of n
// values becomes an n x 1 matrix (a column vector). The magic bytes and the
// version are not examined; the 32-bit header length of later versions is
// not supported.
//
// Every failure is a std::runtime_error with a location prefix, except
// "Encountered IEEE NaN during read" and "Encountered IEEE Inf during read",
// which have none.

#include <cstddef>
#include <cstdint>
#include <istream>
#include <ostream>
#include <string>

#include "io/MatrixIOCommon.h"

namespace velmor::matrixio {

// Element type codes of .npy files; kByteString is "|S<n>" text (the format
// entry of SciPy's .npz archives).
enum class NumpyDataType : int {
  kInt32 = 0,
  kInt64 = 1,
  kFloat32 = 2,
  kFloat64 = 3,
  kByteString = 4
};

struct NumpyHeader {
  NumpyDataType type = NumpyDataType::kFloat64;
  bool swap_bytes = false;     // the file's byte order differs from the host's
  bool fortran_order = false;  // values stored column by column
  int dimensions = 2;          // 1 or 2; 0 for a scalar byte string (1 x 1)
  int64_t rows = 0;            // n for a one-dimensional shape (n,)
  int64_t cols = 0;            // 1 for a one-dimensional shape
  int64_t string_length = 0;   // kByteString only: bytes per element
  // Bytes per stored element.
  int64_t ElementSize() const;
};

// Reads the 10 fixed bytes and the header text, leaving the stream at the
// first value, and adds 10 + H to *bytes_consumed when it is not null. Throws
// "Error reading matrix from numpy stream: %s." on a short read, "Unable to
// find string '%s' at position %ld in npy file header.", "Unsupported data
// type from numpy stream, got '%s'. Supported types are i4, i8, f4 and f8.",
// "Problem reading fortran order from the header '%s'.", "Unable to convert
// '%s' to an integer." (and its variants), "Problem reading matrix shape from
// the header '%s'. Only 1 dimensional vectors and 2 dimensional matrices are
// supported." and "Problem with matrix shape from numpy stream, got zero(s),
// (rows,cols) = (%lu, %lu).".
NumpyHeader ReadNumpyFileHeader(std::istream& stream, uint64_t* bytes_consumed = nullptr);

// Reads one value of file type `type` (byte-swapped first when `swap_bytes`)
// and converts it to T: double takes i4, f4 and f8; float takes f4 and f8
// within float range; int32_t takes i4 and i8 within int32 range. Floating
// values are checked against the NaN and Inf switches. Any other pairing, and
// an out-of-range value, throws with a message that names the cure.
template <typename T>
T ReadNextBinaryNumberFromNumpyStream(std::istream& stream, NumpyDataType type, bool swap_bytes);

// Reads a whole .npy file (or stream) into a matrix. Sizes are checked
// against the bytes available before allocating. A value that cannot be
// converted throws "Unable to read and convert data type {} from npy matrix
// at row,col {},{}" with the value's own failure nested; a short read throws
// "Error reading matrix from numpy stream: '%s'.".
template <typename T>
DenseMatrix<T> ReadMatrixFromNumpyFile(const std::string& file_name);
template <typename T>
DenseMatrix<T> ReadMatrixFromNumpyFile(std::istream& stream);

// As above, reading into `matrix`, whose storage is reused when its shape
// already matches the file's (otherwise a new matrix replaces it once read).
// On failure `matrix` is released (left 0 x 0) when its storage was being
// filled, and untouched otherwise: never a partially read matrix.
template <typename T>
void ReadMatrixFromNumpyFile(const std::string& file_name, DenseMatrix<T>& matrix);

// Reads a whole .npy file held in memory, which must be C-ordered, of the
// host's (little) byte order and of T's own type (f4, f8 or i4), else throws
// "Matrix must be row-major, little endian, and float32, float64, or int32
// type". Values are copied without conversion, checked against the NaN and
// Inf switches.
template <typename T>
DenseMatrix<T> ReadRowMajorMatchingEndian2DNumpyMatrixFileFromMemoryBuffer(const char* buffer,
                                                                           std::size_t size);

// Writes `matrix` as a version 1.0 .npy file as laid out above. A failing
// write throws "Unable to write to numpy stream: %s." (header) or "Unable to
// write binary matrix part of numpy file write." (values).
template <typename T>
void WriteMatrixToNumpyFile(std::ostream& stream, const DenseMatrix<T>& matrix, bool fortran_order);
template <typename T>
void WriteMatrixToNumpyFile(const std::string& file_name, const DenseMatrix<T>& matrix,
                            bool fortran_order);

}  // namespace velmor::matrixio

#endif  // VELMOR_IO_DENSENUMPYFILEIOSUPPORT_H_
