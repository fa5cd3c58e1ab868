#include "functions/SoftFacilityLocationFunction.h"

#include <utility>

#include "utils/error_messages.h"

namespace velmor {

template <typename T>
template <typename MakeRows>
void SoftFacilityLocationFunction<T>::Install(const internal::MessageSite& site, long n, long k,
                                              double softness_value, MakeRows&& make_rows) {
  this->CheckShape(site, n, k);
  this->CheckAndAssignSoftnessValue(softness_value);
  this->rows_ = make_rows();
}

template <typename T>
SoftFacilityLocationFunction<T>::SoftFacilityLocationFunction(int ground_set_size,
                                                              int number_of_concepts,
                                                              double softness_value) {
  Install(VELMOR_SITE(SoftFacilityLocationFunction), ground_set_size, number_of_concepts,
          softness_value, [&] {
            return internal::DenseRows<T>(
                ElementMajorStorage<T>::Zero(ground_set_size, number_of_concepts));
          });
}

template <typename T>
SoftFacilityLocationFunction<T>::SoftFacilityLocationFunction(const DenseMatrix& similarities,
                                                              double softness_value) {
  Install(VELMOR_SITE(SoftFacilityLocationFunction), similarities.rows(), similarities.cols(),
          softness_value, [&] {
            return internal::DenseRows<T>(ElementMajorStorage<T>::FromElementRows(similarities));
          });
}

template <typename T>
SoftFacilityLocationFunction<T>::SoftFacilityLocationFunction(ElementMajor,
                                                              DenseMatrix&& landmarks_by_elements,
                                                              double softness_value) {
  Install(VELMOR_SITE(SoftFacilityLocationFunction), landmarks_by_elements.cols(),
          landmarks_by_elements.rows(), softness_value, [&] {
            return internal::DenseRows<T>(
                ElementMajorStorage<T>::Adopt(std::move(landmarks_by_elements)));
          });
}

template <typename T>
SoftFacilityLocationFunction<T>::SoftFacilityLocationFunction(
    ElementMajor, std::shared_ptr<T> landmarks_by_elements, std::ptrdiff_t ground_set_size,
    std::ptrdiff_t number_of_concepts, double softness_value) {
  const internal::MessageSite site = VELMOR_SITE(SoftFacilityLocationFunction);
  Install(site, ground_set_size, number_of_concepts, softness_value, [&] {
    return internal::DenseRows<T>::Shared(site, std::move(landmarks_by_elements), ground_set_size,
                                          number_of_concepts);
  });
}

template <typename T>
void SoftFacilityLocationFunction<T>::ComputeNormalizationConstant(bool skip) {
  this->Normalize(skip, VELMOR_SITE(SoftFacilityLocationFunction), "soft facility location",
                  "Invalid matrix, f(V) = %g <= 0.");
}

template class SoftFacilityLocationFunction<float>;
template class SoftFacilityLocationFunction<double>;

}  // namespace velmor
