// Facility location over storage it shares rather than owns: a .npy file
// mapped into memory. Every answer must equal, bit for bit, the answer of the
// function built from the same file read into memory; writes must stay with
// the function that makes them.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "functions/FacilityLocationFunction.h"
#include "functions/SoftFacilityLocationFunction.h"
#include "functions/set_function_oracle.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "io/MappedNumpyMatrix.h"
#include "sets/UnorderedHashSet.h"
#include "tests/io/io_test_support.h"

namespace velmor {
namespace {

using matrixio::testing::ReadFileBytes;
using matrixio::testing::TempDir;

template <typename T>
using Matrix = typename FacilityLocationFunction<T>::DenseMatrix;

template <typename T>
Matrix<T> RandomMatrix(int n, int k, std::uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  Matrix<T> m(n, k);
  for (int v = 0; v < n; ++v) {
    for (int i = 0; i < k; ++i) m(v, i) = static_cast<T>(unit(rng));
  }
  return m;
}

// The function over `file_name` mapped in place.
template <typename T>
FacilityLocationFunction<T> MappedFunction(const std::string& file_name) {
  std::optional<matrixio::MappedNumpyMatrix<T>> mapped =
      matrixio::MappedNumpyMatrix<T>::Map(file_name);
  if (!mapped) throw std::runtime_error("not mappable: " + file_name);
  const std::ptrdiff_t n = mapped->rows();
  const std::ptrdiff_t k = mapped->cols();
  return FacilityLocationFunction<T>(typename FacilityLocationFunction<T>::ElementMajor{},
                                     std::move(*mapped).Share(), n, k);
}

template <typename T>
class SharedStorageFacilityLocation : public ::testing::Test {};
using ElementTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(SharedStorageFacilityLocation, ElementTypes);

TYPED_TEST(SharedStorageFacilityLocation, MappedFileGivesTheReadFilesAnswersBitForBit) {
  using T = TypeParam;
  TempDir dir;
  const std::string name = dir.File("sim.npy");
  // k around multiples of four, for every tail of the four-lane sums.
  const struct {
    int n, k;
  } shapes[] = {{1, 1}, {5, 2}, {37, 3}, {37, 4}, {33, 5}, {20, 6}, {24, 7}, {64, 13}, {9, 64}};
  std::uint32_t seed = 3;
  for (const auto& shape : shapes) {
    SCOPED_TRACE("n = " + std::to_string(shape.n) + ", k = " + std::to_string(shape.k));
    matrixio::WriteMatrixToNumpyFile<T>(name, RandomMatrix<T>(shape.n, shape.k, seed++), false);
    FacilityLocationFunction<T> read(matrixio::ReadMatrixFromNumpyFile<T>(name));
    FacilityLocationFunction<T> mapped = MappedFunction<T>(name);
    ASSERT_TRUE(mapped.HasSharedStorage());
    read.ComputeNormalizationConstant(false);
    mapped.ComputeNormalizationConstant(false);
    EXPECT_EQ(mapped.NormalizationScale(), read.NormalizationScale());
    EXPECT_EQ(mapped.GroundSetSize(), shape.n);
    EXPECT_EQ(mapped.NumberOfConcepts(), shape.k);

    // A greedy run through growing contexts: every gain, every choice and
    // every value equal.
    const int n = shape.n;
    UnorderedHashSet empty(n);
    auto read_context = read.MakeGrowingContextExternal(empty);
    auto mapped_context = mapped.MakeGrowingContextExternal(empty);
    std::vector<int> candidates(static_cast<std::size_t>(n));
    for (int v = 0; v < n; ++v) candidates[static_cast<std::size_t>(v)] = v;
    UnorderedHashSet chosen(n);
    for (int step = 0; step < std::min(n, 8); ++step) {
      std::vector<double> read_gains(candidates.size()), mapped_gains(candidates.size());
      read_context->DisjointGains(candidates.data(), static_cast<int>(candidates.size()),
                                  read_gains.data());
      mapped_context->DisjointGains(candidates.data(), static_cast<int>(candidates.size()),
                                    mapped_gains.data());
      for (std::size_t j = 0; j < candidates.size(); ++j) {
        EXPECT_EQ(mapped_gains[j], read_gains[j]) << "candidate " << candidates[j];
        EXPECT_EQ(mapped_context->DisjointGain(candidates[j]), read_gains[j]);
      }
      const std::size_t best = static_cast<std::size_t>(
          std::max_element(mapped_gains.begin(), mapped_gains.end()) - mapped_gains.begin());
      const int v = candidates[best];
      EXPECT_EQ(mapped_context->AddNewElementToContext(v), read_context->AddNewElementToContext(v));
      EXPECT_EQ(mapped_context->CurrentValue(), read_context->CurrentValue());
      chosen.insert(v);
      candidates.erase(candidates.begin() + static_cast<std::ptrdiff_t>(best));
    }

    // Whole-set and single-element forms, and the shrinking context.
    EXPECT_EQ(mapped.Evaluate(chosen), read.Evaluate(chosen));
    auto read_shrinking = read.MakeShrinkingContextExternal(chosen);
    auto mapped_shrinking = mapped.MakeShrinkingContextExternal(chosen);
    for (int v = 0; v < n; ++v) {
      EXPECT_EQ(mapped.Evaluate(v), read.Evaluate(v));
      EXPECT_EQ(mapped.Gain(v, chosen), read.Gain(v, chosen));
      EXPECT_EQ(mapped.Loss(v, chosen), read.Loss(v, chosen));
      if (chosen.contains(v)) {
        EXPECT_EQ(mapped_shrinking->SubsetLoss(v), read_shrinking->SubsetLoss(v));
      }
    }

    // Soft facility location over the mapped file: the read function's
    // answers, bit for bit.
    auto shared = matrixio::MappedNumpyMatrix<T>::Map(name);
    ASSERT_TRUE(shared);
    const SoftFacilityLocationFunction<T> soft_mapped(
        typename SoftFacilityLocationFunction<T>::ElementMajor{}, std::move(*shared).Share(), n,
        shape.k, 0.3);
    const SoftFacilityLocationFunction<T> soft_read(matrixio::ReadMatrixFromNumpyFile<T>(name),
                                                    0.3);
    EXPECT_TRUE(soft_mapped.HasSharedStorage());
    const auto soft_read_context = soft_read.MakeGrowingContext(chosen);
    const auto soft_mapped_context = soft_mapped.MakeGrowingContext(chosen);
    for (int v = 0; v < n; ++v) {
      EXPECT_EQ(soft_mapped_context->DisjointGain(v), soft_read_context->DisjointGain(v));
    }
    EXPECT_EQ(soft_mapped.Evaluate(chosen), soft_read.Evaluate(chosen));

    // And the mapped function against its own whole-set evaluation.
    testing::OracleOptions options;
    options.seed = seed;
    options.steps = 40;
    options.tolerance = 8.0 * shape.k * std::numeric_limits<T>::epsilon();
    testing::CheckSetFunctionAgainstEvaluation(mapped, options);
  }
}

TYPED_TEST(SharedStorageFacilityLocation, WritesStayWithTheFunctionThatMakesThem) {
  using T = TypeParam;
  TempDir dir;
  const std::string name = dir.File("sim.npy");
  const Matrix<T> m = RandomMatrix<T>(6, 5, 21);
  matrixio::WriteMatrixToNumpyFile<T>(name, m, false);
  const std::string file_bytes = ReadFileBytes(name);

  FacilityLocationFunction<T> f = MappedFunction<T>(name);
  const T* base = f.Row(0);

  // Sole holder: written in place, into copied pages, never into the file.
  f.MutableRow(2)[1] = T(5);
  f.MutableElementMajorMatrix()(4, 5) = T(6);  // element 5, landmark 4
  EXPECT_TRUE(f.HasSharedStorage());
  EXPECT_EQ(f.Row(0), base);
  EXPECT_EQ(f.Similarity(2, 1), T(5));
  EXPECT_EQ(f.Similarity(5, 4), T(6));
  Matrix<T> changed = m;
  changed(2, 1) = T(5);
  changed(5, 4) = T(6);
  EXPECT_EQ(f.Evaluate(UnorderedHashSet(6)), 0.0);
  for (int v = 0; v < 6; ++v)
    EXPECT_EQ(f.Evaluate(v), FacilityLocationFunction<T>(changed).Evaluate(v));
  EXPECT_EQ(ReadFileBytes(name), file_bytes);
  EXPECT_TRUE((matrixio::ReadMatrixFromNumpyFile<T>(name).array() == m.array()).all());
  EXPECT_EQ(MappedFunction<T>(name).Similarity(2, 1), m(2, 1));

  // A clone shares the storage until it writes; its write makes it its own.
  std::unique_ptr<FacilityLocationFunction<T>> clone = f.clone();
  EXPECT_TRUE(clone->HasSharedStorage());
  EXPECT_EQ(clone->Row(0), base);
  clone->MutableRow(1)[3] = T(7);
  EXPECT_FALSE(clone->HasSharedStorage());
  EXPECT_NE(clone->Row(0), base);
  EXPECT_EQ(clone->Similarity(1, 3), T(7));
  EXPECT_EQ(clone->Similarity(2, 1), T(5));  // the original's earlier write, copied
  EXPECT_EQ(f.Similarity(1, 3), m(1, 3));
  EXPECT_EQ(ReadFileBytes(name), file_bytes);
  // The original holds its storage alone again: it writes in place.
  f.MutableRow(0)[0] = T(8);
  EXPECT_EQ(f.Row(0), base);
  EXPECT_EQ(clone->Similarity(0, 0), m(0, 0));

  // Assignment follows the same rules.
  FacilityLocationFunction<T> assigned(m);
  assigned = f;
  EXPECT_TRUE(assigned.HasSharedStorage());
  EXPECT_EQ(assigned.Row(0), base);
  assigned.MutableElementMajorMatrix()(0, 0) = T(9);
  EXPECT_FALSE(assigned.HasSharedStorage());
  EXPECT_EQ(f.Similarity(0, 0), T(8));
  EXPECT_EQ(assigned.Similarity(0, 0), T(9));
  FacilityLocationFunction<T> moved(std::move(assigned));
  EXPECT_EQ(moved.Similarity(0, 0), T(9));
  EXPECT_EQ(moved.Similarity(2, 1), T(5));

  // An owned matrix is copied by a clone, as before.
  FacilityLocationFunction<T> owned(m);
  std::unique_ptr<FacilityLocationFunction<T>> owned_clone = owned.clone();
  EXPECT_FALSE(owned_clone->HasSharedStorage());
  EXPECT_NE(owned_clone->Row(0), owned.Row(0));
  owned_clone->MutableRow(0)[0] = T(3);
  EXPECT_EQ(owned.Similarity(0, 0), m(0, 0));
}

TYPED_TEST(SharedStorageFacilityLocation, ConstructionErrors) {
  using T = TypeParam;
  using F = FacilityLocationFunction<T>;
  auto values = std::shared_ptr<T>(new T[6](), std::default_delete<T[]>());
  auto message = [](auto&& make) -> std::string {
    try {
      make();
    } catch (const std::invalid_argument& e) {
      return e.what();
    }
    return "no std::invalid_argument";
  };
  auto ends_with = [](const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
  };
  EXPECT_TRUE(ends_with(message([&] { F(typename F::ElementMajor{}, nullptr, 2, 3); }),
                        "Invalid argument, no similarity storage."));
  EXPECT_TRUE(ends_with(message([&] { F(typename F::ElementMajor{}, values, 0, 3); }),
                        "Invalid argument, ground_set_size=0."));
  EXPECT_TRUE(ends_with(message([&] { F(typename F::ElementMajor{}, values, 2, 0); }),
                        "Invalid argument, number_of_concepts=2."));
  const std::ptrdiff_t too_many = std::ptrdiff_t{INT_MAX} + 1;
  EXPECT_TRUE(ends_with(message([&] { F(typename F::ElementMajor{}, values, too_many, 1); }),
                        "Invalid argument, ground_set_size=" + std::to_string(too_many) + "."));
  EXPECT_TRUE(ends_with(message([&] { F(typename F::ElementMajor{}, values, 1, too_many); }),
                        "Invalid argument, number_of_concepts=1."));
  EXPECT_TRUE(ends_with(message([&] {
                          SoftFacilityLocationFunction<T>(
                              typename SoftFacilityLocationFunction<T>::ElementMajor{}, nullptr, 2,
                              3, 1.0);
                        }),
                        "Invalid argument, no similarity storage."));
  // A valid one reads the values where they are.
  values.get()[4] = T(2);
  F f(typename F::ElementMajor{}, values, 2, 3);
  EXPECT_EQ(f.Row(0), values.get());
  EXPECT_EQ(f.Similarity(1, 1), T(2));
}

}  // namespace
}  // namespace velmor
