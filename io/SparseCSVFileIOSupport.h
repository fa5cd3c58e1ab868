#ifndef VELMOR_IO_SPARSECSVFILEIOSUPPORT_H_
#define VELMOR_IO_SPARSECSVFILEIOSUPPORT_H_

// Sparse matrices as comma-separated text: the lines and cells of the dense
// CSV format (see io/DenseCSVFileIOSupport.h), where an empty cell is an
// absent entry. Any other cell at data line r and cell position c is the
// entry (r, c), converted as a dense CSV cell (same messages, NaN and Inf
// switches included), so a cell of white space only is refused, and so is
// the carriage return left by a CRLF line end after a final comma. A line
// ending in a comma has one more, empty, cell.

#include <istream>
#include <ostream>
#include <string>
#include <vector>

#include "io/MatrixIOCommon.h"

namespace velmor::matrixio {

// Reads a data-lines x cells matrix; with `header` the first line's cells are
// appended to `field_names` (less a final carriage return). An empty stream
// gives a 0 x 0 matrix. Throws "Stream has incorrect format at line %d.
// Expected %d columns, but got %d columns instead.", the cell conversion
// failures of the dense reader, and "Error reading sparse matrix from csv
// stream: %s." when the stream goes bad.
template <typename T>
SparseMatrix<T> ReadSparseMatrixFromCSVFile(std::istream& stream,
                                            std::vector<std::string>& field_names, bool header);

// Opens `file_name` and reads it as above; a file that cannot be opened
// throws "Error reading matrix from csv file '%s': %s.".
template <typename T>
SparseMatrix<T> ReadSparseMatrixFromCSVFile(const std::string& file_name, bool header,
                                            std::vector<std::string>* field_names = nullptr);

// Writes one line per matrix row with one cell per column: the stored value
// (shortest text that reads back to the same value; hexadecimal for a
// subnormal value) or nothing for an absent entry, so that ReadSparseMatrixFromCSVFile gives the
// same matrix back (stored zeros included). A matrix with no columns cannot be represented and
// reads back with one empty column. Throws "Error writing matrix to csv file: %s." when the stream
// fails; the file form "Error writing matrix to csv file %s: %s.".
template <typename T>
void WriteSparseMatrixToCSVFile(std::ostream& stream, const SparseMatrix<T>& matrix);
template <typename T>
void WriteSparseMatrixToCSVFile(const std::string& file_name, const SparseMatrix<T>& matrix);

}  // namespace velmor::matrixio

#endif  // VELMOR_IO_SPARSECSVFILEIOSUPPORT_H_
