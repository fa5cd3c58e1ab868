#include "matrixvector/ElementMajorStorage.h"

#include <algorithm>
#include <utility>

namespace velmor {
namespace {

// Side of the square tiles of the transpose: a tile's source columns stay in
// the first-level cache.
constexpr Eigen::Index kTransposeTile = 64;

}  // namespace

template <typename T>
ElementMajorStorage<T> ElementMajorStorage<T>::Zero(Eigen::Index elements, Eigen::Index landmarks) {
  return Adopt(DenseMatrix::Zero(landmarks, elements));
}

template <typename T>
ElementMajorStorage<T> ElementMajorStorage<T>::FromElementRows(
    const DenseMatrix& elements_by_landmarks) {
  const Eigen::Index rows = elements_by_landmarks.rows();
  const Eigen::Index cols = elements_by_landmarks.cols();
  DenseMatrix transposed(cols, rows);
  for (Eigen::Index v = 0; v < rows; v += kTransposeTile) {
    const Eigen::Index tile_rows = std::min(kTransposeTile, rows - v);
    for (Eigen::Index i = 0; i < cols; i += kTransposeTile) {
      const Eigen::Index tile_cols = std::min(kTransposeTile, cols - i);
      transposed.block(i, v, tile_cols, tile_rows) =
          elements_by_landmarks.block(v, i, tile_rows, tile_cols).transpose();
    }
  }
  return Adopt(std::move(transposed));
}

template <typename T>
ElementMajorStorage<T> ElementMajorStorage<T>::Adopt(DenseMatrix&& landmarks_by_elements) {
  ElementMajorStorage storage;
  storage.owned_ = std::move(landmarks_by_elements);
  storage.elements_ = storage.owned_.cols();
  storage.landmarks_ = storage.owned_.rows();
  storage.Rebase();
  return storage;
}

template <typename T>
ElementMajorStorage<T> ElementMajorStorage<T>::Share(std::shared_ptr<T> values,
                                                     Eigen::Index elements,
                                                     Eigen::Index landmarks) {
  ElementMajorStorage storage;
  storage.shared_ = std::move(values);
  storage.elements_ = elements;
  storage.landmarks_ = landmarks;
  storage.Rebase();
  return storage;
}

template <typename T>
ElementMajorStorage<T>::ElementMajorStorage(const ElementMajorStorage& other)
    : owned_(other.owned_),
      shared_(other.shared_),
      elements_(other.elements_),
      landmarks_(other.landmarks_) {
  Rebase();
}

template <typename T>
ElementMajorStorage<T>::ElementMajorStorage(ElementMajorStorage&& other) noexcept
    : owned_(std::move(other.owned_)),
      shared_(std::move(other.shared_)),
      elements_(std::exchange(other.elements_, 0)),
      landmarks_(std::exchange(other.landmarks_, 0)) {
  Rebase();
  other.Rebase();
}

template <typename T>
ElementMajorStorage<T>& ElementMajorStorage<T>::operator=(const ElementMajorStorage& other) {
  if (this != &other) *this = ElementMajorStorage(other);
  return *this;
}

template <typename T>
ElementMajorStorage<T>& ElementMajorStorage<T>::operator=(ElementMajorStorage&& other) noexcept {
  if (this != &other) {
    owned_ = std::move(other.owned_);
    shared_ = std::move(other.shared_);
    elements_ = std::exchange(other.elements_, 0);
    landmarks_ = std::exchange(other.landmarks_, 0);
    Rebase();
    other.Rebase();
  }
  return *this;
}

template <typename T>
T* ElementMajorStorage<T>::MutableData() {
  if (shared_ != nullptr && shared_.use_count() > 1) {
    // Copy first, then switch: a failed allocation leaves the values shared.
    owned_ = Matrix();
    shared_.reset();
    Rebase();
  }
  return data_;
}

template class ElementMajorStorage<float>;
template class ElementMajorStorage<double>;

}  // namespace velmor
