#ifndef VELMOR_IO_DENSECSVFILEIOSUPPORT_H_
#define VELMOR_IO_DENSECSVFILEIOSUPPORT_H_

// Dense matrices as comma-separated text, one matrix row per line, for
// T = int32_t, float and double.
//
// Text layout: lines end with a newline (the last one may lack it; a carriage
// return before it is white space and so accepted); a line is split at every
// comma, without quoting or comments, so "1,,2" has an empty middle cell and
// "1,2," an empty last one. An optional first line holds field names.
//
// Cells: leading white space is skipped, then one number as std::stoi /
// std::stof / std::stod read it, then only white space. NaN and infinite
// values are refused while the switches of io/MatrixIOCommon.h are on.
//
// Every failure is a std::runtime_error with a location prefix, except
// "Encountered IEEE NaN during read" and "Encountered IEEE Inf during read",
// which have none. Nothing is returned on failure.

#include <cstdint>
#include <istream>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "io/MatrixIOCommon.h"

namespace velmor::matrixio {

// Reads a matrix: row i of the matrix is the i-th data line. With `header`
// the first line's cells are appended, exactly as read (less a final carriage
// return), to `field_names` and take no part in the column count. An empty
// stream (or one holding only the header) gives a 0 x 0 matrix.
// Throws:
//   "Stream has incorrect format at line %d. Expected %d columns, but got %d
//   columns instead." (0-based data line index);
//   "Cell '%s' is out of range to be converted to '%s' at row %d, col %d:
//   '%s'." and "Error converting cell '%s' to '%s' at row %d, col %d: '%s'."
//   (0-based data row and column; empty cells fail here);
//   "Cell '%s' contains more than a single floating point value" (or "...
//   integer value" for int32_t);
//   "Error reading matrix from CSV stream: %s." when the stream goes bad.
template <typename T>
DenseMatrix<T> ReadMatrixFromCSVFile(std::istream& stream, std::vector<std::string>& field_names,
                                     bool header);

// Opens `file_name` and reads it as above; the field names go to
// `field_names` when it is not null. An unopenable file throws "Error
// reading matrix from csv file '%s': %s.".
template <typename T>
DenseMatrix<T> ReadMatrixFromCSVFile(const std::string& file_name, bool header,
                                     std::vector<std::string>* field_names = nullptr);

// (rows, cols) without converting cells: all lines, the header included,
// must have the first line's number of cells, else "Stream has incorrect
// format at line %d. ..." with the 0-based index over all lines. Rows exclude
// the header line. Stream failure: "Error reading matrix from csv stream: %s.";
// the file form reports "Error reading matrix from csv file '%s': %s.".
std::pair<int64_t, int64_t> ReadRowsColsFromCSVFile(std::istream& stream, bool header);
std::pair<int64_t, int64_t> ReadRowsColsFromCSVFile(const std::string& file_name, bool header);

// As ReadRowsColsFromCSVFile, but cols is the first line's number of cells and
// later lines are not compared. The file form reports "Error reading matrix
// from csv file %s: %s.".
std::pair<int64_t, int64_t> ReadRowsColsFromCSVFileNoColumnConsistencyCheck(std::istream& stream,
                                                                            bool header);
std::pair<int64_t, int64_t> ReadRowsColsFromCSVFileNoColumnConsistencyCheck(
    const std::string& file_name, bool header);

// Writes the field names (when any) as the first line, then one line per
// matrix row, values separated by "," without padding: integers in decimal,
// floats with 6 and doubles with 15 significant digits in general notation
// (as printf's "%g"). Throws "Trying to produce matrix with %ld columns but
// %ld field names." for a non-empty list of the wrong length, and "Error
// writing matrix to csv file: %s." when the stream fails.
template <typename T>
void WriteMatrixToCSVFile(std::ostream& stream, const DenseMatrix<T>& matrix,
                          const std::vector<std::string>& field_names);

// Opens (truncating) `file_name` and writes as above; failures to open or
// write throw "Error writing matrix to csv file %s: %s." (with the stream
// form's failure nested when there is one).
template <typename T>
void WriteMatrixToCSVFile(const std::string& file_name, const DenseMatrix<T>& matrix,
                          const std::vector<std::string>& field_names = {});

}  // namespace velmor::matrixio

#endif  // VELMOR_IO_DENSECSVFILEIOSUPPORT_H_
