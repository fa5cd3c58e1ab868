#include "functions/SoftSparseFacilityLocationFunction.h"

#include "utils/error_messages.h"

namespace velmor {

template <typename T>
SoftSparseFacilityLocationFunction<T>::SoftSparseFacilityLocationFunction(
    SparseMatrix&& similarities, double softness_value, bool skip_normalization) {
  const internal::MessageSite site = VELMOR_SITE(SoftSparseFacilityLocationFunction);
  this->CheckShape(site, similarities.rows(), similarities.cols());
  this->CheckAndAssignSoftnessValue(softness_value);
  this->AdoptAndNormalize(similarities, skip_normalization, site, "sparse facility location",
                          "Invalid matrix, f(V) = %g <= 0.");
}

template class SoftSparseFacilityLocationFunction<float>;
template class SoftSparseFacilityLocationFunction<double>;

}  // namespace velmor
