#include "functions/SparseFacilityLocationFunction.h"

#include "utils/error_messages.h"

namespace velmor {

template <typename T>
SparseFacilityLocationFunction<T>::SparseFacilityLocationFunction(SparseMatrix&& similarities,
                                                                  bool skip_normalization) {
  const internal::MessageSite site = VELMOR_SITE(SparseFacilityLocationFunction);
  this->CheckShape(site, similarities.rows(), similarities.cols());
  this->AdoptAndNormalize(similarities, skip_normalization, site, "sparse facility location",
                          "Invalid matrix, f(V) = %g <= 0.");
}

template class SparseFacilityLocationFunction<float>;
template class SparseFacilityLocationFunction<double>;

}  // namespace velmor
