#ifndef VELMOR_IO_DENSEBINFILEIOSUPPORT_H_
#define VELMOR_IO_DENSEBINFILEIOSUPPORT_H_

// Dense matrices as headerless raw binary: exactly rows x cols elements of T
// (T = int32_t, float, double) in the host's byte order, column by column
// (the matrix's own memory order). The file carries no shape, so the reader
// is told rows and cols; matrices of 2^31 or more elements are not supported.
//
// Every failure is a std::runtime_error with a location prefix, except
// "Encountered IEEE NaN during read", which has none.

#include <istream>
#include <ostream>
#include <string>

#include "io/MatrixIOCommon.h"

namespace velmor::matrixio {

// Reads rows x cols elements straight into the matrix storage. Surplus bytes
// after them are left unread. Throws "Unable to allocate matrix of size
// (rows,cols)=(%d,%d) for reading from binary file." for negative sizes, 2^31
// or more elements, or failed allocation; "Error reading matrix from binary
// file '%s'." (the system error text, or "unexpected end of file") when
// fewer bytes are available, which is checked before allocating when the
// stream is seekable. Float and double: a NaN is refused while the NaN switch
// is on; infinities are accepted.
template <typename T>
DenseMatrix<T> ReadMatrixFromBinaryFile(std::istream& stream, int rows, int cols);

// Opens `file_name` in binary mode and reads as above; failures to open or
// read throw "Error reading matrix from binary file '%s': %s." (file name,
// error text) instead of the stream form's read message. The other failures
// are the stream form's.
template <typename T>
DenseMatrix<T> ReadMatrixFromBinaryFile(const std::string& file_name, int rows, int cols);

// Writes the whole storage in one write; failure: "Error writing binary
// matrix : %s.".
template <typename T>
void WriteMatrixToBinaryFile(std::ostream& stream, const DenseMatrix<T>& matrix);

// Opens (truncating) `file_name` in binary mode and writes as above; failures
// throw "Error writing to binary %s: %s." (file name, error text).
template <typename T>
void WriteMatrixToBinaryFile(const std::string& file_name, const DenseMatrix<T>& matrix);

}  // namespace velmor::matrixio

#endif  // VELMOR_IO_DENSEBINFILEIOSUPPORT_H_
