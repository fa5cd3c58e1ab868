#ifndef VELMOR_IO_MAPPEDNUMPYMATRIX_H_
#define VELMOR_IO_MAPPEDNUMPYMATRIX_H_

// A .npy matrix used where it lies: the file is mapped into memory instead of
// being read into a new matrix.
//
// A C-ordered n x k file of T values holds row v (k values) contiguous at
// offset v * k, which is a k x n column-major matrix: the element-major
// layout of the facility-location functions. Mapping it costs no copy and no
// fresh memory: the pages are the page cache's own.
//
// The mapping is private and writable: a write copies the page it touches
// into the process's own memory (copy on write) and never reaches the file,
// nor any other mapping of it.
//
// REQUIRES: nobody rewrites the file while it is mapped: pages not yet
// written show the file as it is now. A file truncated while it is mapped
// ends the process: reading a page past its new end raises SIGBUS, which a
// handler (installed with the first mapping) turns into the report of a
// failed load on standard error ("Problems opening file '%s'." with "Error
// reading matrix from numpy stream: 'the file was truncated while it was
// mapped'." nested) and exit status 1. SIGBUS raised elsewhere keeps the
// disposition it had before.
//
// T is float or double.

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "io/DenseNumpyFileIOSupport.h"
#include "io/MatrixIOCommon.h"

namespace velmor::matrixio {

template <typename T>
class MappedNumpyMatrix {
 public:
  // Whether values described by `header`, starting `data_offset` bytes into
  // the file, can be used in place as T: the file's type is T's own ("f4" for
  // float, "f8" for double, no conversion), in the host's byte order, C
  // ordered (or a single row or column, where both orders agree; a
  // one-dimensional shape (n,) is n x 1), and `data_offset` is a multiple of
  // alignof(T). Files written by numpy (header padded to 64 bytes) and by
  // WriteMatrixToNumpyFile (16 bytes) are aligned.
  static bool CanMapInPlace(const NumpyHeader& header, uint64_t data_offset);

  // Maps the .npy file `file_name`.
  // Returns std::nullopt, with nothing left mapped or open, when the file is
  // not a regular file, when its values cannot be used in place (see
  // CanMapInPlace), when the system refuses the mapping or when 64 mappings
  // are already guarded against truncation: the caller then
  // reads it with ReadMatrixFromNumpyFile, which converts what can be
  // converted and reports what cannot.
  // Throws std::runtime_error with the messages of ReadMatrixFromNumpyFile:
  // "Error reading matrix from numpy stream: %s." when the file cannot be
  // opened, the messages of ReadNumpyFileHeader for a bad header, "Error
  // reading matrix from numpy stream: 'unexpected end of file'." when the
  // file holds fewer values than its shape says, and, when the read switches
  // of MatrixIOCommon.h are on, "Unable to read and convert data type {} from
  // npy matrix at row,col {},{}" with "Encountered IEEE NaN during read" or
  // "... Inf ..." nested, for the first such value in file order.
  // Cost: the header is parsed and the whole file is brought in at once
  // (page tables filled for reading in one call, nothing copied); when a read
  // switch is on, every value is checked, split between `threads` threads
  // (>= 1; fewer for small files), with the same result for every count;
  // with both on, the column maxima come out of the same pass.
  static std::optional<MappedNumpyMatrix> Map(const std::string& file_name, int threads = 1);

  MappedNumpyMatrix(MappedNumpyMatrix&& other) noexcept;
  MappedNumpyMatrix& operator=(MappedNumpyMatrix&& other) noexcept;
  MappedNumpyMatrix(const MappedNumpyMatrix&) = delete;
  MappedNumpyMatrix& operator=(const MappedNumpyMatrix&) = delete;
  // Unmaps the file (discarding any copied pages).
  ~MappedNumpyMatrix();

  // The file's shape: n rows (elements), k columns (values per row). Both 0
  // after a move from this object.
  int64_t rows() const { return rows_; }
  int64_t cols() const { return cols_; }

  // Row v of the file, k values, at data() + v * k.
  const T* data() const { return data_; }
  // Writable through copy on write; the file is never changed.
  T* data() { return data_; }

  // The k x n column-major view (column v = row v of the file).
  Eigen::Map<const DenseMatrix<T>> ElementMajor() const;
  Eigen::Map<DenseMatrix<T>> MutableElementMajor();

  // When Map checked every value for both NaN and infinity (both read
  // switches on) and the file has at least 64 rows: the largest value of each
  // of the k columns over the n rows, found in the same pass as the check;
  // moved out, leaving it empty. Empty otherwise. Describes the file's values: meaningless once a
  // caller has written through data().
  std::vector<T> TakeCheckedColumnMaxima() { return std::move(checked_column_maxima_); }

  // Moves the mapping into a shared owner and returns a pointer to the first
  // value that keeps the file mapped for as long as any copy of it lives.
  // Leaves this object empty.
  std::shared_ptr<T> Share() &&;

 private:
  MappedNumpyMatrix(void* base, std::size_t length, T* data, int64_t rows, int64_t cols);
  void Release() noexcept;

  void* base_ = nullptr;  // start of the mapping (the file's first byte)
  std::size_t length_ = 0;
  T* data_ = nullptr;
  int64_t rows_ = 0;
  int64_t cols_ = 0;
  std::vector<T> checked_column_maxima_;
};

}  // namespace velmor::matrixio

#endif  // VELMOR_IO_MAPPEDNUMPYMATRIX_H_
