#include "functions/SumSumDispersionFunction.h"

#include "utils/error_messages.h"

namespace velmor {

template <typename T>
SumSumDispersionFunction<T>::SumSumDispersionFunction(const DenseMatrix& matrix) {
  const internal::MessageSite site = VELMOR_SITE(SumSumDispersionFunction);
  if ((matrix.array() < T(0)).any()) {
    internal::ThrowInvalidArgument(site, "Matrix must be non-negative.");
  }
  this->CheckSquare(site, matrix.rows(), matrix.cols());
  this->rows_ = internal::DenseRows<T>(ElementMajorStorage<T>::FromElementRows(matrix));
  const int n = this->Size();
  bool symmetric = true;
  for (int a = 0; a < n && symmetric; ++a) {
    const T* row = this->rows_.Row(a);
    for (int b = a + 1; b < n; ++b) {
      if (!(row[b] == this->rows_.Row(b)[a])) {
        symmetric = false;
        break;
      }
    }
  }
  // The columns of M are the rows of the column-major matrix as it is.
  this->Index(symmetric
                  ? internal::DenseRows<T>()
                  : internal::DenseRows<T>(ElementMajorStorage<T>::Adopt(DenseMatrix(matrix))),
              symmetric);
}

template <typename T>
void SumSumDispersionFunction<T>::ComputeNormalizationConstant(bool skip) {
  this->Normalize(skip, VELMOR_SITE(SumSumDispersionFunction), "SumSumDisp",
                  "Invalid possibly all zero or negative SumSumDisp matrix, f(V) = %g <= 0.");
}

template class SumSumDispersionFunction<float>;
template class SumSumDispersionFunction<double>;

}  // namespace velmor
