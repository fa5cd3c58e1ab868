// Similarity matrices from features against the memory passes that bound
// them, measured in the same run. Features are shaped like users' data: 32
// Gaussian features per item around n / 500 cluster centres. Reported per n
// (and thread count where it applies):
//   ReadPass       sum of an n x n float matrix already in memory (several
//                  independent accumulators: memory bandwidth);
//   FreshWrite     a new n x n float matrix filled with a constant: the
//                  page faults and writes any new result pays (/1: with the
//                  preparation the similarities give their result);
//   Dense/<kind>   FeatureSimilarity<float>::Dense, a new n x n result;
//                  RbfDefault includes the exact median of the default gamma;
//   Nearest/<kind> FeatureSimilarity<float>::Nearest with k = 20;
//   TileProduct    one 256 x 32 by 32 x 256 tile product with Eigen and, when
//                  built with OpenBLAS, with its gemm (single thread).
// The figures of merit are Dense over FreshWrite and ReadPass. The Large
// cases (20000 items dense, 100000 nearest) run one iteration each and report
// the process's peak memory: run them alone, e.g.
//   feature_similarity_bench --benchmark_filter='Large.*Dense'

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <Eigen/Core>
#include <cstdint>
#include <memory>
#include <random>

#include "matrixvector/FeatureSimilarity.h"
#include "utils/FreshMemory.h"

#ifdef VELMOR_BENCH_OPENBLAS
#include <cblas.h>
extern "C" void openblas_set_num_threads(int);
#endif

namespace {

using velmor::FeatureSimilarity;
using Kind = FeatureSimilarity<float>::Kind;
using Matrix = FeatureSimilarity<float>::Matrix;

constexpr int kFeatures = 32;

const Matrix& Features(int n) {
  static std::unique_ptr<Matrix> features;
  if (!features || features->rows() != n) {
    std::mt19937 engine(7);
    std::normal_distribution<double> normal;
    const int clusters = std::max(2, n / 500);
    Eigen::MatrixXd centres(clusters, kFeatures);
    for (int c = 0; c < clusters; ++c)
      for (int f = 0; f < kFeatures; ++f) centres(c, f) = 3 * normal(engine);
    features = std::make_unique<Matrix>(n, kFeatures);
    std::uniform_int_distribution<int> pick(0, clusters - 1);
    for (int i = 0; i < n; ++i) {
      const int c = pick(engine);
      for (int f = 0; f < kFeatures; ++f)
        (*features)(i, f) = static_cast<float>(centres(c, f) + normal(engine));
    }
  }
  return *features;
}

// Bytes of the n x n float similarity per iteration, and the process's peak
// resident memory so far in MB.
void SetBytes(benchmark::State& state, int n) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * n * int64_t{n} *
                          static_cast<int64_t>(sizeof(float)));
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  state.counters["peak_MB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
}

void BM_ReadPass(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const Matrix matrix = Matrix::Constant(n, n, 0.5f);
  for (auto _ : state) {
    const float* data = matrix.data();
    const std::size_t size = static_cast<std::size_t>(matrix.size());
    float lanes[16] = {};
    for (std::size_t i = 0; i + 16 <= size; i += 16)
      for (int l = 0; l < 16; ++l) lanes[l] += data[i + static_cast<std::size_t>(l)];
    benchmark::DoNotOptimize(lanes);
  }
  SetBytes(state, n);
}

// range(1): prepared as the similarities prepare their result (two threads).
void BM_FreshWrite(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    Matrix matrix(n, n);
    if (state.range(1) != 0) {
      velmor::PrepareFreshMemory(matrix.data(),
                                 static_cast<std::size_t>(matrix.size()) * sizeof(float), 2);
    }
    matrix.setConstant(0.5f);
    benchmark::DoNotOptimize(matrix.data());
  }
  SetBytes(state, n);
}

template <Kind kind, int gamma_tenths>
void BM_Dense(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const Matrix& features = Features(n);
  const FeatureSimilarity<float> similarity(kind, gamma_tenths / 10.0,
                                            static_cast<int>(state.range(1)));
  for (auto _ : state) {
    Matrix result = similarity.Dense(features);
    benchmark::DoNotOptimize(result.data());
  }
  SetBytes(state, n);
}

template <Kind kind>
void BM_Nearest(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const Matrix& features = Features(n);
  const FeatureSimilarity<float> similarity(kind, 0, static_cast<int>(state.range(1)));
  for (auto _ : state) {
    auto result = similarity.Nearest(features, 20);
    benchmark::DoNotOptimize(result.valuePtr());
  }
  SetBytes(state, n);
}

template <typename T>
void BM_TileProductEigen(benchmark::State& state) {
  using M = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;
  const M a = M::Random(kFeatures, 256), b = M::Random(kFeatures, 256);
  M c(256, 256);
  for (auto _ : state) {
    c.noalias() = a.transpose() * b;
    benchmark::DoNotOptimize(c.data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 2 * 256 * 256 * kFeatures);
}

#ifdef VELMOR_BENCH_OPENBLAS
template <typename T>
void BM_TileProductOpenBlas(benchmark::State& state) {
  using M = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;
  openblas_set_num_threads(1);
  const M a = M::Random(kFeatures, 256), b = M::Random(kFeatures, 256);
  M c(256, 256);
  for (auto _ : state) {
    if constexpr (sizeof(T) == 4) {
      cblas_sgemm(CblasColMajor, CblasTrans, CblasNoTrans, 256, 256, kFeatures, 1.f, a.data(),
                  kFeatures, b.data(), kFeatures, 0.f, c.data(), 256);
    } else {
      cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, 256, 256, kFeatures, 1.0, a.data(),
                  kFeatures, b.data(), kFeatures, 0.0, c.data(), 256);
    }
    benchmark::DoNotOptimize(c.data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 2 * 256 * 256 * kFeatures);
}
BENCHMARK_TEMPLATE(BM_TileProductOpenBlas, float);
BENCHMARK_TEMPLATE(BM_TileProductOpenBlas, double);
#endif

BENCHMARK_TEMPLATE(BM_TileProductEigen, float);
BENCHMARK_TEMPLATE(BM_TileProductEigen, double);

void Sizes(benchmark::internal::Benchmark* b) { b->Unit(benchmark::kMillisecond)->UseRealTime(); }
void SizesAndThreads(benchmark::internal::Benchmark* b) {
  Sizes(b);
  for (const int n : {5000, 10000})
    for (const int threads : {1, 2}) b->Args({n, threads});
}

BENCHMARK(BM_ReadPass)->Apply(Sizes)->Arg(5000)->Arg(10000);
BENCHMARK(BM_FreshWrite)->Apply(Sizes)->ArgsProduct({{5000, 10000}, {0, 1}});
BENCHMARK_TEMPLATE(BM_Dense, Kind::kRbf, 0)->Name("BM_Dense/RbfDefault")->Apply(SizesAndThreads);
BENCHMARK_TEMPLATE(BM_Dense, Kind::kRbf, 5)->Name("BM_Dense/Rbf0.5")->Apply(SizesAndThreads);
BENCHMARK_TEMPLATE(BM_Dense, Kind::kCosine, 0)->Name("BM_Dense/Cosine")->Apply(SizesAndThreads);
BENCHMARK_TEMPLATE(BM_Dense, Kind::kEuclideanSim, 0)
    ->Name("BM_Dense/EuclideanSim")
    ->Apply(SizesAndThreads);
BENCHMARK_TEMPLATE(BM_Nearest, Kind::kCosine)
    ->Name("BM_Nearest/Cosine")
    ->Apply(Sizes)
    ->Args({10000, 1})
    ->Args({10000, 2});
BENCHMARK_TEMPLATE(BM_Nearest, Kind::kRbf)
    ->Name("BM_Nearest/RbfDefault")
    ->Apply(Sizes)
    ->Args({10000, 2});

// The from-features goals' shapes: 20000 x 32 to a 1.6 GB dense RBF
// similarity; 100000 x 32 to COSINE nearest neighbours, k = 20.
BENCHMARK_TEMPLATE(BM_Dense, Kind::kRbf, 0)
    ->Name("BM_Large/Dense/RbfDefault")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1)
    ->Args({20000, 2});
BENCHMARK_TEMPLATE(BM_Nearest, Kind::kCosine)
    ->Name("BM_Large/Nearest/Cosine")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1)
    ->Args({100000, 2});

}  // namespace

BENCHMARK_MAIN();
