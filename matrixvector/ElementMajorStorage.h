#ifndef VELMOR_MATRIXVECTOR_ELEMENTMAJORSTORAGE_H_
#define VELMOR_MATRIXVECTOR_ELEMENTMAJORSTORAGE_H_

// The values of n elements over k landmarks (or k other elements), stored
// element-major: the k values of element v are contiguous, at offset v * k.
// Seen as a matrix it is k x n and column-major, column v holding element v.
// This is the layout the gain loops of the matrix-based set functions stream
// through.
//
// The storage is either owned (an Eigen matrix) or shared: n * k values held
// elsewhere through a std::shared_ptr, such as a file mapped into memory, read
// where they are. A copy copies owned values and shares shared ones; the
// writable accessors first give the storage its own copy of shared values when
// anyone else holds them too, so a copy never sees another's writes.
//
// Shapes are not checked here: the classes that hold a storage check them
// first, with their own messages. T is float or double.

#include <Eigen/Core>
#include <cstddef>
#include <memory>

namespace velmor {

template <typename T>
class ElementMajorStorage {
 public:
  // Dynamic-size column-major matrix of T.
  using DenseMatrix = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;

  // No elements.
  ElementMajorStorage() = default;

  // n elements of k zeros each. std::bad_alloc when they cannot be allocated.
  static ElementMajorStorage Zero(Eigen::Index elements, Eigen::Index landmarks);

  // From an n x k matrix whose row v holds element v's values (the layout of
  // a loaded file), transposed tile by tile: a plain transpose of a large
  // matrix reads one value per cache line and is many times slower.
  static ElementMajorStorage FromElementRows(const DenseMatrix& elements_by_landmarks);

  // The k x n element-major matrix itself, moved in without a copy.
  static ElementMajorStorage Adopt(DenseMatrix&& landmarks_by_elements);

  // n * k values held elsewhere, element v's at offset v * k; shared, not copied.
  static ElementMajorStorage Share(std::shared_ptr<T> values, Eigen::Index elements,
                                   Eigen::Index landmarks);

  ElementMajorStorage(const ElementMajorStorage& other);
  ElementMajorStorage(ElementMajorStorage&& other) noexcept;
  ElementMajorStorage& operator=(const ElementMajorStorage& other);
  ElementMajorStorage& operator=(ElementMajorStorage&& other) noexcept;

  Eigen::Index Elements() const { return elements_; }
  Eigen::Index Landmarks() const { return landmarks_; }

  // Element v's values, contiguous; unchecked.
  const T* Row(Eigen::Index v) const { return data_ + v * landmarks_; }
  // Writable row v; unchecked. Shared values held by others too are first
  // copied into storage of its own (O(n k) once); values held by this storage
  // alone are written in place (a privately mapped file takes the write into
  // its copied page, never into the file).
  T* MutableRow(Eigen::Index v) { return MutableData() + v * landmarks_; }

  // The k x n element-major matrix, as a view.
  Eigen::Map<const DenseMatrix> Matrix() const {
    return Eigen::Map<const DenseMatrix>(data_, landmarks_, elements_);
  }
  // Writable view, with MutableRow's rule for shared values.
  Eigen::Map<DenseMatrix> MutableMatrix() {
    return Eigen::Map<DenseMatrix>(MutableData(), landmarks_, elements_);
  }

  // Whether the values are shared rather than owned.
  bool IsShared() const { return shared_ != nullptr; }

 private:
  // Points data_ at the values in use.
  void Rebase() { data_ = shared_ != nullptr ? shared_.get() : owned_.data(); }
  T* MutableData();

  DenseMatrix owned_;          // k x n when owned; empty when shared
  std::shared_ptr<T> shared_;  // the shared values, or null when owned
  T* data_ = nullptr;          // element v's values at data_ + v * k
  Eigen::Index elements_ = 0;
  Eigen::Index landmarks_ = 0;
};

extern template class ElementMajorStorage<float>;
extern template class ElementMajorStorage<double>;

}  // namespace velmor

#endif  // VELMOR_MATRIXVECTOR_ELEMENTMAJORSTORAGE_H_
