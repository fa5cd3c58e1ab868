#include "functions/FacilityLocationFunction.h"

#include <algorithm>
#include <cstring>
#include <thread>
#include <utility>

#include "utils/error_messages.h"

namespace velmor {
namespace {

// Four lanes of T in one vector register (SSE for float, AVX for double when
// available; the compiler splits it otherwise). Lane arithmetic is plain
// element-wise IEEE arithmetic, so the vector form computes exactly the
// four-lane sums.
template <typename T>
struct Quad;
template <>
struct Quad<float> {
  typedef float type __attribute__((vector_size(4 * sizeof(float))));
};
template <>
struct Quad<double> {
  typedef double type __attribute__((vector_size(4 * sizeof(double))));
};

template <typename T>
inline typename Quad<T>::type LoadQuad(const T* p) {
  typename Quad<T>::type q;
  std::memcpy(&q, p, sizeof(q));
  return q;
}

template <typename T>
inline T PositivePart(T x) {
  return x > T(0) ? x : T(0);
}

// out[r] = sum over i of max(0, rows[r][i] - maxima[i]) for R rows at once,
// each in the four-lane order: lane j sums the landmarks i = j (mod 4) of
// the full blocks of four; of the last k mod 4 landmarks, the first two go to
// lanes 0 and 1 when two or three remain, and a single remaining one to lane
// 2; result (lane2 + (lane0 + lane1)) + lane3. The R rows have independent
// accumulators (R dependency chains in flight) and share each load of the
// maxima; the arithmetic of each row does not depend on R.
template <typename T, int R>
inline void LaneGains(const T* const* rows, const T* maxima, int k, T* out) {
  using V = typename Quad<T>::type;
  const V zero = {};
  V acc[R];
  for (int r = 0; r < R; ++r) acc[r] = zero;
  const int full = k & ~3;
  for (int i = 0; i < full; i += 4) {
    const V m = LoadQuad(maxima + i);
    for (int r = 0; r < R; ++r) {
      V d = LoadQuad(rows[r] + i) - m;
      d = d > zero ? d : zero;
      acc[r] += d;
    }
  }
  for (int r = 0; r < R; ++r) {
    T lane0 = acc[r][0];
    T lane1 = acc[r][1];
    T lane2 = acc[r][2];
    T lane3 = acc[r][3];
    int i = full;
    if (k - i >= 2) {
      lane0 += PositivePart<T>(rows[r][i] - maxima[i]);
      lane1 += PositivePart<T>(rows[r][i + 1] - maxima[i + 1]);
      i += 2;
    }
    if (i < k) lane2 += PositivePart<T>(rows[r][i] - maxima[i]);
    out[r] = (lane2 + (lane0 + lane1)) + lane3;
  }
}

}  // namespace

// ----- Construction and normalization ------------------------------------------

template <typename T>
template <typename MakeRows>
void FacilityLocationFunction<T>::Install(const internal::MessageSite& site, long n, long k,
                                          MakeRows&& make_rows) {
  this->CheckShape(site, n, k);
  this->rows_ = make_rows();
}

template <typename T>
FacilityLocationFunction<T>::FacilityLocationFunction(int ground_set_size, int number_of_concepts) {
  Install(VELMOR_SITE(FacilityLocationFunction), ground_set_size, number_of_concepts, [&] {
    return internal::DenseRows<T>(
        ElementMajorStorage<T>::Zero(ground_set_size, number_of_concepts));
  });
}

template <typename T>
FacilityLocationFunction<T>::FacilityLocationFunction(const DenseMatrix& similarities) {
  Install(VELMOR_SITE(FacilityLocationFunction), similarities.rows(), similarities.cols(), [&] {
    return internal::DenseRows<T>(ElementMajorStorage<T>::FromElementRows(similarities));
  });
}

template <typename T>
FacilityLocationFunction<T>::FacilityLocationFunction(ElementMajor,
                                                      DenseMatrix&& landmarks_by_elements) {
  Install(VELMOR_SITE(FacilityLocationFunction), landmarks_by_elements.cols(),
          landmarks_by_elements.rows(), [&] {
            return internal::DenseRows<T>(
                ElementMajorStorage<T>::Adopt(std::move(landmarks_by_elements)));
          });
}

template <typename T>
FacilityLocationFunction<T>::FacilityLocationFunction(ElementMajor,
                                                      std::shared_ptr<T> landmarks_by_elements,
                                                      std::ptrdiff_t ground_set_size,
                                                      std::ptrdiff_t number_of_concepts) {
  const internal::MessageSite site = VELMOR_SITE(FacilityLocationFunction);
  Install(site, ground_set_size, number_of_concepts, [&] {
    return internal::DenseRows<T>::Shared(site, std::move(landmarks_by_elements), ground_set_size,
                                          number_of_concepts);
  });
}

template <typename T>
void FacilityLocationFunction<T>::ComputeNormalizationConstant(bool skip) {
  ComputeNormalizationConstant(skip, 1);
}

template <typename T>
void FacilityLocationFunction<T>::ComputeNormalizationConstant(bool skip, int threads) {
  if (threads < 0) {
    internal::ThrowInvalidArgument(VELMOR_SITE(FacilityLocationFunction),
                                   "Invalid thread count %d.", threads);
  }
  if (threads == 0) threads = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  this->NormalizeInOnePass(skip, VELMOR_SITE(FacilityLocationFunction), "facility location",
                           "Invalid possibly all zero or negative matrix, f(V) = %g <= 0.",
                           threads);
}

template <typename T>
void FacilityLocationFunction<T>::ComputeNormalizationConstant(
    bool skip, const std::vector<T>& checked_maxima) {
  this->NormalizeFromCheckedMaxima(skip, VELMOR_SITE(FacilityLocationFunction),
                                   "Invalid possibly all zero or negative matrix, f(V) = %g <= 0.",
                                   checked_maxima);
}

// ----- Gain kernels ----------------------------------------------------------------

template <typename T>
double FacilityLocationFunction<T>::RawDisjointGain(int v, const T* maxima) const {
  const T* row = Row(v);
  T gain_raw;
  LaneGains<T, 1>(&row, maxima, this->NumberOfConcepts(), &gain_raw);
  return static_cast<double>(gain_raw);
}

template <typename T>
void FacilityLocationFunction<T>::BatchedDisjointGains(const int* elements, int count,
                                                       const T* maxima, double* gains) const {
  const int k = this->NumberOfConcepts();
  const double scale = this->scale_;
  int j = 0;
  for (; j + 4 <= count; j += 4) {
    const T* rows[4] = {Row(elements[j]), Row(elements[j + 1]), Row(elements[j + 2]),
                        Row(elements[j + 3])};
    T raw[4];
    LaneGains<T, 4>(rows, maxima, k, raw);
    for (int r = 0; r < 4; ++r) gains[j + r] = scale * static_cast<double>(raw[r]);
  }
  for (; j < count; ++j) gains[j] = scale * RawDisjointGain(elements[j], maxima);
}

template class FacilityLocationFunction<float>;
template class FacilityLocationFunction<double>;

}  // namespace velmor
