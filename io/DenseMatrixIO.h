#ifndef VELMOR_IO_DENSEMATRIXIO_H_
#define VELMOR_IO_DENSEMATRIXIO_H_

// The front door for dense matrices: load one from exactly one source (a
// file whose format follows from its extension, a block of the caller's
// memory, or random numbers) and write one to a file chosen by extension.
//
// Extensions are those of the file name as a filesystem path (from the last
// dot of the last component); only the spellings listed are recognized,
// mixed case is not. Failures of a file reader are re-thrown as
// std::runtime_error "Problems opening file '%s'." with the reader's failure
// nested. A failed load returns nothing; the caller's objects are untouched.

#include <concepts>
#include <cstdint>
#include <string>

#include "io/MatrixIOCommon.h"

namespace velmor::matrixio {

// Single-name form, T = float or double. Exactly one of: a non-null
// `file_name` (".csv"/".CSV": dense CSV without header, rows and cols
// ignored; ".npy"/".NPY": NumPy file, rows and cols ignored; ".bin"/".BIN":
// rows x cols raw values), a non-null `ram` (rows x cols values, column-major,
// copied), or `create_random` (rows x cols values uniform in [0, 1], drawn
// in memory order from rand(), which is not seeded here).
// Throws std::invalid_argument "Must specify one and only one type of input to
// produce matrix, but got %d: name = (%s), is_ram_ptr_p=%d, and
// create_random_matrix_p=%d." and "Rows (=%d) and Columns (=%d) must both be
// positive." (binary file, memory, random); std::runtime_error "Problems
// opening file '%s'." with "Unknown file type '%s'." or the reader's failure
// nested.
template <typename T>
requires std::floating_point<T> DenseMatrix<T> LoadDenseMatrixFromFileOrRamOrMakeRandom(
    const char* file_name, const T* ram, bool create_random, int rows, int cols);

// As above for 32-bit integers; random entries are |rand() - 2^30| mod
// `random_modulus` (which must be positive; zero is not checked).
DenseMatrix<int32_t> LoadDenseMatrixFromFileOrRamOrMakeRandom(const char* file_name,
                                                              const int32_t* ram,
                                                              bool create_random, int rows,
                                                              int cols, int32_t random_modulus);

// Separate-names form: exactly one of the three names, `ram` and
// `create_random`, else std::invalid_argument "Must specify one and only one
// type of matrix to produce with arguments given: (%s), (%s), (%s), %d and
// %d.". Names are not checked against extensions. Otherwise as above.
template <typename T>
requires std::floating_point<T> DenseMatrix<T> LoadDenseMatrixFromFileOrRamOrMakeRandom(
    const char* csv_file_name, const char* bin_file_name, const char* npy_file_name, const T* ram,
    bool create_random, int rows, int cols);
DenseMatrix<int32_t> LoadDenseMatrixFromFileOrRamOrMakeRandom(
    const char* csv_file_name, const char* bin_file_name, const char* npy_file_name,
    const int32_t* ram, bool create_random, int rows, int cols, int32_t random_modulus);

// Writes by lower-case extension only: ".csv" (no field names), ".npy" (in
// the given order) or ".bin". Any other name throws std::runtime_error
// "Unable to write to file, unknown file type from unknonw extension in
// filename '%s'.". Writer failures propagate.
template <typename T>
void WriteMatrixToFile(const DenseMatrix<T>& matrix, const std::string& file_name,
                       bool fortran_order);

// Exactly one of a non-null `file_name` and `to_standard_output`, else
// std::invalid_argument "Must specify one and only one type of matrix to
// produce with arguments given: (%s) and %d.". Standard output gets Eigen's
// default text form; a name goes by ".csv"/".CSV", ".bin"/".BIN" or
// ".npy"/".NPY" (row-major) to its writer, any other throws
// std::runtime_error "Unknown file type to save matrix '%s'".
template <typename T>
void WriteDenseMatrixToFile(const DenseMatrix<T>& matrix, const char* file_name,
                            bool to_standard_output);

// Exactly one of the three names and `to_standard_output`, else
// std::invalid_argument "Must specify one and only one type of matrix to
// produce with arguments given: (%s), (%s), (%s), and %d."; each name goes to
// its own writer whatever its extension.
template <typename T>
void WriteDenseMatrixToFile(const DenseMatrix<T>& matrix, const char* csv_file_name,
                            const char* bin_file_name, const char* npy_file_name,
                            bool to_standard_output);

}  // namespace velmor::matrixio

namespace velmor {
// The front door is also reachable from the library's top namespace.
using matrixio::LoadDenseMatrixFromFileOrRamOrMakeRandom;
using matrixio::WriteDenseMatrixToFile;
using matrixio::WriteMatrixToFile;
}  // namespace velmor

#endif  // VELMOR_IO_DENSEMATRIXIO_H_
