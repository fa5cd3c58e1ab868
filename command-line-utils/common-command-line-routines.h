#ifndef VELMOR_COMMAND_LINE_UTILS_COMMON_COMMAND_LINE_ROUTINES_H_
#define VELMOR_COMMAND_LINE_UTILS_COMMON_COMMAND_LINE_ROUTINES_H_

// Loading helpers and output helpers of the command-line program.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "command-line-utils/RunOptions.h"
#include "io/MappedNumpyMatrix.h"
#include "io/MatrixIOCommon.h"
#include "summarization/SummaryPlan.h"

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
// The script appears whole or not at all (AtomicOutputFile). A file that
// cannot be opened prints "Can't open file '<path>' for writing to output" on
// standard output, one that cannot be written whole "Can't write file '<path>'
// for output: <system error>"; neither is an error.
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

// Writes a vector of the summary as a one-column matrix (k x 1): the order as
// 32-bit integers, the gains as doubles; to a .npy file when the name ends in
// ".npy" or ".NPY", otherwise to a .csv file. Throws the writer's errors.
template <typename T>
void WriteSummaryVector(const char* path, const std::vector<T>& values);

// Why `path` cannot be opened for writing (the system's error text), or
// std::nullopt when it can or is null (see AtomicOutputFile::Problem: a
// regular file needs a temporary file in its folder). Nothing is changed.
std::optional<std::string> OutputFileProblem(const char* path);

// Writes the order and the gains as two comma-separated lines (gains with ten
// significant digits), whole or not at all (AtomicOutputFile). Throws
// exception::InputDataError "Can't open file '{}' for writing to output.",
// with the system's error nested, when the file cannot be written.
void WriteAsciiResultsFile(const char* path, const std::vector<int>& order,
                           const std::vector<float>& gains);

// Loads the matrix of function group `group` ("FL", "SSD", ...) from
// `file_name` (.csv, .npy or .bin, the last with `rows` x `cols`), expands it
// as one-hot codes when asked (see ExpandOneHot) and applies the
// transformation string. A load failure is a std::invalid_argument "Problems
// loading <group> matrix." and a bad transformation a CommandLineError
// "Problems with matrix transformation string '...' for <group> function.",
// each with the cause nested; codes that are not non-negative whole numbers
// are a CommandLineError "<group> one-hot expansion needs ...". Feature
// transformations run on `threads` threads (0: the machine's cores). When
// `symmetric` is given, it tells whether the result is known to be symmetric
// bit for bit (see TransformableMatrix).
template <typename T>
matrixio::DenseMatrix<T> LoadAndTransformMatrix(const char* group, const char* file_name, int rows,
                                                int cols, const char* transformation,
                                                bool one_hot_expand = false, int threads = 0,
                                                bool* symmetric = nullptr);

// The dense matrix of function group `group` as a plan takes it. With
// `may_share` (the caller needs no owned rows afterwards) it is element-major
// storage where that costs no copy: an untransformed file that
// MapNumpyMatrixInPlace maps (its failures included), or a loaded and
// transformed matrix known to be symmetric, moved into shared storage.
// Otherwise the rows LoadAndTransformMatrix loads. A mapping is logged on
// `ctrl` at debug level.
template <typename T>
DenseMatrixInput<T> LoadDenseGroupMatrix(const char* group, const char* file_name, int rows,
                                         int cols, const char* transformation, bool one_hot_expand,
                                         bool may_share, spdlog::logger& ctrl, int threads = 0);

// A dense or sparse group's matrix in the precision RunsInDouble chooses,
// loaded by LoadAndTransformMatrix or LoadAndTransformSparseMatrix.
SummaryPlan::DenseMatrices LoadDenseGroupMatrix(Precision precision, const char* group,
                                                const char* file_name, int rows, int cols,
                                                const char* transformation, int threads = 0);
SummaryPlan::SparseMatrices LoadSparseGroupMatrix(Precision precision, const char* group,
                                                  const char* file_name, int rows, int cols,
                                                  const char* transformation, int threads = 0);

// Whether the matrix of `file_name` is held in double precision. A file that
// cannot be read counts as single: loading it reports the problem.
bool RunsInDouble(Precision precision, const char* file_name);

// For a ".npy" or ".NPY" file whose values can be used where they lie as T
// (see matrixio::MappedNumpyMatrix: T's own type, host byte order, C order),
// the file mapped into memory, with no read and no copy. std::nullopt for any
// other name or file: the caller then loads it with LoadAndTransformMatrix,
// which converts or reports it. A file that cannot be mapped because it is
// unreadable or broken (bad header, too few values, a refused NaN or Inf) is
// read by LoadAndTransformMatrix here, so that its failure is reported by the
// same functions as for any other file. The values are checked on
// `threads` threads (0: the machine's cores).
template <typename T>
std::optional<matrixio::MappedNumpyMatrix<T>> MapNumpyMatrixInPlace(const char* group,
                                                                    const char* file_name,
                                                                    int threads = 0);

// The same for sparse groups: a .csv or .npz file is read as a sparse matrix;
// a dense .npy or .bin file is read dense, transformed (KNN() keeps the k
// largest entries of each row) and stored sparse.
template <typename T>
matrixio::SparseMatrix<T> LoadAndTransformSparseMatrix(const char* group, const char* file_name,
                                                       int rows, int cols,
                                                       const char* transformation, int threads = 0);

}  // namespace velmor

#endif  // VELMOR_COMMAND_LINE_UTILS_COMMON_COMMAND_LINE_ROUTINES_H_
