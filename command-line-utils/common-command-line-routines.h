#ifndef VELMOR_COMMAND_LINE_UTILS_COMMON_COMMAND_LINE_ROUTINES_H_
#define VELMOR_COMMAND_LINE_UTILS_COMMON_COMMAND_LINE_ROUTINES_H_

// Loading helpers and output helpers of the command-line program.

#include <cstdint>
#include <optional>
#include <vector>

#include "io/MappedNumpyMatrix.h"
#include "io/MatrixIOCommon.h"

namespace spdlog {
class logger;
}

namespace velmor {

// Writes a Python script (numpy, matplotlib) that plots, against the rank
// order, the greedy gains, their differences, the cumulative gains and, when
// `conditional_curvature` has exactly one entry per element, the conditional
// curvature: five panels with the curvature, four without.
//   path                 output file, replaced; null: nothing is written.
//   unnormalized_gains   plot the gains as they are instead of normalized.
//   log_scale_curvature  logarithmic scale for the curvature panel.
// Numbers are written with "%.16g" (inf and nan as the C library prints them).
// A file that cannot be opened prints "Can't open file '<path>' for writing to
// output" on standard output and is not an error.
void WriteGainsPlotScript(const char* path, bool unnormalized_gains, bool log_scale_curvature,
                          const std::vector<int32_t>& elements_in_order,
                          const std::vector<float>& gains,
                          const std::vector<double>& conditional_curvature);

// The summary size k from the sumsize option's value: k >= 0 as it is (at
// most n), k < 0 as n + 1 + k; the option's default 2147483647 (not given)
// is n when another constraint limits the size, else an error. Throws
// exception::CommandLineError "Must give valid summary size k, ..." (two
// texts: an invalid value, and a negative one whose result stays negative).
int SummarySizeFromOption(int32_t sumsize, int64_t n, bool constraint_given);

// The numerical library's threads: a negative count leaves them alone, 0 logs
// their number on `ctrl`, a positive count sets it (logged before and after).
void SetLibraryThreads(int32_t threads, spdlog::logger& ctrl);

// Writes a vector of the summary (the order, or the gains) as a one-column
// matrix file chosen by the name's extension (.csv, .npy, .bin and their
// upper-case forms), in double precision. Throws the writer's errors.
template <typename T>
void WriteSummaryVector(const char* path, const std::vector<T>& values);

// Writes the order and the gains as two comma-separated lines (gains with ten
// significant digits). Throws exception::InputDataError "Can't open file '{}'
// for writing to output." when the file cannot be opened.
void WriteAsciiResultsFile(const char* path, const std::vector<int>& order,
                           const std::vector<float>& gains);

// Loads the matrix of function group `group` ("FL", "SSD", ...) from
// `file_name` (.csv, .npy or .bin, the last with `rows` x `cols`), expands it
// as one-hot codes when asked (see ExpandOneHot) and applies the
// transformation string. A load failure is a std::invalid_argument "Problems
// loading <group> matrix." and a bad transformation a CommandLineError
// "Problems with matrix transformation string '...' for <group> function.",
// each with the cause nested; codes that are not non-negative whole numbers
// are a CommandLineError "<group> one-hot expansion needs ...".
template <typename T>
matrixio::DenseMatrix<T> LoadAndTransformMatrix(const char* group, const char* file_name, int rows,
                                                int cols, const char* transformation,
                                                bool one_hot_expand = false);

// For a ".npy" or ".NPY" file whose values can be used where they lie as T
// (see matrixio::MappedNumpyMatrix: T's own type, host byte order, C order),
// the file mapped into memory, with no read and no copy. std::nullopt for any
// other name or file: the caller then loads it with LoadAndTransformMatrix,
// which converts or reports it. A failure while mapping (unreadable file, bad
// header, too few values, a refused NaN or Inf) throws as
// LoadAndTransformMatrix would: std::invalid_argument "Problems loading
// <group> matrix." with "Problems opening file '%s'." and the cause nested.
template <typename T>
std::optional<matrixio::MappedNumpyMatrix<T>> MapNumpyMatrixInPlace(const char* group,
                                                                    const char* file_name);

// The same for sparse groups: a .csv or .npz file is read as a sparse matrix;
// a dense .npy or .bin file is read dense, transformed (KNN() keeps the k
// largest entries of each row) and stored sparse.
template <typename T>
matrixio::SparseMatrix<T> LoadAndTransformSparseMatrix(const char* group, const char* file_name,
                                                       int rows, int cols,
                                                       const char* transformation);

}  // namespace velmor

#endif  // VELMOR_COMMAND_LINE_UTILS_COMMON_COMMAND_LINE_ROUTINES_H_
