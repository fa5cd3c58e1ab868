#ifndef VELMOR_BENCH_BENCH_SUPPORT_H_
#define VELMOR_BENCH_BENCH_SUPPORT_H_

// Data shared by the greedy benchmarks.

#include <cstdlib>
#include <memory>

#include "functions/FacilityLocationFunction.h"

namespace velmor::bench {

// Dense facility location over n elements and n landmarks with similarities
// drawn uniformly from [0, 1) (seeded with `seed`), element-major and
// normalized. Uniform similarities are the hard case for lazy evaluation:
// nearly every gain stays close to the best.
inline std::unique_ptr<FacilityLocationFunction<float>> UniformFacilityLocation(int n,
                                                                                unsigned seed) {
  using Matrix = FacilityLocationFunction<float>::DenseMatrix;
  srand(seed);
  Matrix matrix = (Matrix::Random(n, n).array() + 1.0f) * 0.5f;
  auto f = std::make_unique<FacilityLocationFunction<float>>(
      FacilityLocationFunction<float>::ElementMajor{}, std::move(matrix));
  f->ComputeNormalizationConstant(false);
  return f;
}

}  // namespace velmor::bench

#endif  // VELMOR_BENCH_BENCH_SUPPORT_H_
