#ifndef VELMOR_IO_SPARSENUMPYFILEIOSUPPORT_H_
#define VELMOR_IO_SPARSENUMPYFILEIOSUPPORT_H_

// Sparse matrices from the .npz archives of SciPy's sparse save: an
// uncompressed ZIP archive of .npy arrays "format" ("csr" or "coo"), "shape"
// (int64 rows, cols), "data" (values), and "indices" + "indptr" (CSR) or
// "row" + "col" (COO). Index arrays must be int32; int64 ones are refused
// because the matrix has 32-bit indices. Values may be i4, i8, f4 or f8 with
// the conversion rules of the .npy reader (NaN and Inf switches included).
//
// Only the ZIP local headers are read, one after another (zip64 sizes
// included); the first other signature, such as the central directory's,
// ends the archive. Arrays may come in any order; other entries are skipped.
//
// Every failure is a std::runtime_error with a location prefix (the NaN and
// Inf failures nested inside have none). Nothing is returned on failure.

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include "io/MatrixIOCommon.h"

namespace velmor::matrixio {

struct NpzEntryHeader {
  bool end_of_entries = false;  // the next signature is not a local header
  std::string variable_name;    // the entry's file name, such as "data.npy"
  uint64_t data_size = 0;       // bytes of the stored .npy file that follows
};

// Reads one local file header and leaves the stream at the entry's data.
// Throws "Error reading the first 30 bytes from npz stream: %s.", "Error
// reading from npz stream, only support uncompressed files.Compression Mode:
// %d, Compressed Size: %u, Uncompressed Size %u, error code: %s.", the
// zip64 corruption messages, and the name and extra-field read failures.
NpzEntryHeader ReadNextNpzFileHeader(std::istream& stream);

// Reads a CSR or COO matrix from an archive. Sizes are checked against the
// bytes available before anything is allocated (a dimension above 2^24 needs
// an archive of at least a quarter as many bytes, else "Unable to allocate
// sparse matrix of size ..." is thrown); CSR arrays are checked for
// consistency and COO indices for range. Duplicate COO entries (and those of
// a non-canonical CSR matrix) are summed, as SciPy does.
template <typename T>
SparseMatrix<T> ReadSparseMatrixFromScipyNPZFile(std::istream& stream);

// Opens `file_name`; failure: "Error reading sparse matrix from npz file
// '%s': %s.".
template <typename T>
SparseMatrix<T> ReadSparseMatrixFromScipyNPZFile(const std::string& file_name);

// Turns COO arrays of equal length into triplets and releases the arrays
// (left empty). Unequal lengths throw "Error constructing from a scipy coo
// format sparse matrix.The row and col index and data vector sizes should be
// equal but got: {} {} {}.".
template <typename T>
std::vector<SparseTriplet<T>> LoadTripletsFromCOOAndFreeArrays(std::vector<int32_t>& row,
                                                               std::vector<int32_t>& col,
                                                               std::vector<T>& data);

}  // namespace velmor::matrixio

#endif  // VELMOR_IO_SPARSENUMPYFILEIOSUPPORT_H_
