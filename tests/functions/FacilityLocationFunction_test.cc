#include "functions/FacilityLocationFunction.h"

#include <gtest/gtest.h>

#include <Eigen/SparseCore>
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "functions/SoftFacilityLocationFunction.h"
#include "functions/SparseFacilityLocationFunction.h"
#include "functions/set_function_oracle.h"
#include "io/DenseNumpyFileIOSupport.h"
#include "io/MappedNumpyMatrix.h"
#include "matrixvector/eigen_matrix_checks.h"
#include "sets/FixedGroundSet.h"
#include "sets/UnorderedHashSet.h"
#include "support/float_types.h"
#include "support/temp_files.h"

namespace velmor {
namespace {

using testing::ExpectLocatedError;
using testing::RandomMatrix;
using testing::SetOf;

template <typename T>
using Matrix = typename FacilityLocationFunction<T>::DenseMatrix;

// The expected four-lane sum, written out plainly: lane i % 4 for the full
// blocks, then lanes 0, 1 for a tail of two or three, lane 2 for a last one.
float LaneOrderSum(const std::vector<float>& terms) {
  const int k = static_cast<int>(terms.size());
  float lane[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  const int full = k / 4 * 4;
  for (int i = 0; i < full; ++i) lane[i % 4] += terms[i];
  int i = full;
  if (k - i >= 2) {
    lane[0] += terms[i];
    lane[1] += terms[i + 1];
    i += 2;
  }
  if (i < k) lane[2] += terms[i];
  return (lane[2] + (lane[0] + lane[1])) + lane[3];
}

template <typename T>
class FacilityLocationTest : public ::testing::Test {};
TYPED_TEST_SUITE(FacilityLocationTest, testing::FloatTypes);

TYPED_TEST(FacilityLocationTest, ConstructionFromEitherLayoutAgrees) {
  using T = TypeParam;
  // More than one 64 x 64 transposition tile each way, with partial tiles.
  const int n = 70, k = 67;
  const Matrix<T> m = RandomMatrix<T>(n, k, 3);
  FacilityLocationFunction<T> from_rows(m);
  // The element-major k x n matrix is moved in without a copy.
  Matrix<T> transposed = m.transpose();
  const T* storage = transposed.data();
  FacilityLocationFunction<T> from_columns(typename FacilityLocationFunction<T>::ElementMajor{},
                                           std::move(transposed));
  EXPECT_EQ(storage, from_columns.ElementMajorMatrix().data());
  for (int v = 0; v < n; ++v) {
    for (int i = 0; i < k; ++i) {
      ASSERT_EQ(m(v, i), from_rows.Similarity(v, i)) << v << ", " << i;
      ASSERT_EQ(m(v, i), from_columns.Similarity(v, i)) << v << ", " << i;
    }
  }
}

TYPED_TEST(FacilityLocationTest, ContextEdgeCases) {
  using T = TypeParam;
  const int n = 5;
  Matrix<T> m(n, 3);
  m << 1, 2, 3,  //
      1, 2, 3,   // duplicate of row 0
      0, 1, 1,   // dominated by row 0
      4, 0, 0,   //
      -1, -2, 0.5;
  FacilityLocationFunction<T> f(m);
  // Adding a dominated element changes nothing and reports it.
  auto growing = f.MakeGrowingContext(SetOf(n, {0}));
  EXPECT_FALSE(growing->AddNewElementToContext(2, true));
  EXPECT_EQ(6.0, growing->CurrentValue());
  EXPECT_TRUE(growing->AddNewElementToContext(3, true));
  EXPECT_EQ(9.0, growing->CurrentValue());
  // Ties: each of two equal maxima has loss 0 on those landmarks.
  auto shrinking = f.MakeShrinkingContext(SetOf(n, {0, 1, 3}));
  EXPECT_EQ(0.0, shrinking->SubsetLoss(0));
  EXPECT_EQ(3.0, shrinking->SubsetLoss(3));
  shrinking->RemoveExistingElementFromContext(0, true);
  EXPECT_EQ(5.0, shrinking->SubsetLoss(1));
  // A negative row: the singleton form sums without clamping, the set form clamps.
  EXPECT_EQ(-2.5, f.Evaluate(4));
  EXPECT_EQ(0.5, f.Evaluate(SetOf(n, {4})));
  EXPECT_EQ(0.5, f.MakeGrowingContext(UnorderedHashSet(n))->DisjointGain(4));
}

TYPED_TEST(FacilityLocationTest, Errors) {
  using T = TypeParam;
  const std::string file = "FacilityLocationFunction";
  FacilityLocationFunction<T> f(RandomMatrix<T>(10, 4, 1));
  auto growing = f.MakeGrowingContext(SetOf(10, {2}));
  const int bad[] = {1, -3};
  double gains[2];
  // Normalization: all zeros; NaN and infinity nested, the first bad entry in
  // element-major scan order; the scale stays 1 after a failure.
  FacilityLocationFunction<T> zeros(4, 3);
  Matrix<T> m = RandomMatrix<T>(5, 4, 2);
  m(3, 1) = std::numeric_limits<T>::infinity();
  m(2, 3) = std::numeric_limits<T>::quiet_NaN();
  FacilityLocationFunction<T> nan(m);
  m(2, 3) = 0;
  FacilityLocationFunction<T> inf(m);
  testing::ExpectLocatedErrors(
      file,
      {{[&] { growing->DisjointGains(bad, 2, gains); }, "DisjointGains", "Invalid element = -3."},
       {[] { FacilityLocationFunction<T>(0, 3); }, file, "Invalid argument, ground_set_size=0."},
       {[] { FacilityLocationFunction<T>(3, 0); }, file, "Invalid argument, number_of_concepts=3."},
       {[&] { zeros.ComputeNormalizationConstant(false); }, "ComputeNormalizationConstant",
        "Invalid possibly all zero or negative matrix, f(V) = 0 <= 0."}});
  EXPECT_EQ(1.0, zeros.NormalizationScale());
  ExpectLocatedError([&] { nan.ComputeNormalizationConstant(false); }, file,
                     "ComputeNormalizationConstant", "Invalid facility location matrix.",
                     "Matrix contains IEEE FP NaN value at (row,col)=(2,3).");
  ExpectLocatedError([&] { inf.ComputeNormalizationConstant(true); }, file,
                     "ComputeNormalizationConstant", "Invalid facility location matrix.",
                     "Matrix contains IEEE FP +/- Inf value at (row,col)=(3,1).");
  // With the library-wide checks off the matrix is not inspected.
  SetMatrixValueChecksEnabled(false);
  EXPECT_NO_THROW(inf.ComputeNormalizationConstant(true));
  SetMatrixValueChecksEnabled(true);
}

// The one-pass normalization split between threads: the scale is 1 / f(V)
// as the sequential whole-set evaluation computes it, bit for bit, and a bad
// entry is reported as the first in element-major order, for every count.
TYPED_TEST(FacilityLocationTest, OnePassNormalizationOnAnyThreadCount) {
  using T = TypeParam;
  const std::string file = "FacilityLocationFunction";
  const struct { int n, k; } shapes[] = {{1, 1}, {2, 5}, {7, 3}, {64, 33}, {65, 130}};
  for (const auto& shape : shapes) {
    // Negative entries too, so that clamping at 0 takes part.
    Matrix<T> m = RandomMatrix<T>(shape.n, shape.k, 11 + shape.n);
    m.array() -= T(0.4);
    FacilityLocationFunction<T> f(m);
    const double ground_set_value = f.EvaluateGroundSet();  // sequential, scale 1
    for (int threads : {1, 2, 3, 8, 0}) {
      SCOPED_TRACE("n = " + std::to_string(shape.n) + ", threads = " + std::to_string(threads));
      f.ComputeNormalizationConstant(false, threads);
      EXPECT_EQ(1.0 / ground_set_value, f.NormalizationScale());
      f.ComputeNormalizationConstant(true, threads);
      EXPECT_EQ(1.0, f.NormalizationScale());
    }
    // From the columns' maxima of checked values instead of a pass: the same
    // scale, bit for bit.
    std::vector<T> maxima(static_cast<std::size_t>(shape.k));
    for (int i = 0; i < shape.k; ++i) maxima[static_cast<std::size_t>(i)] = m.col(i).maxCoeff();
    f.ComputeNormalizationConstant(false, maxima);
    EXPECT_EQ(1.0 / ground_set_value, f.NormalizationScale());
    f.ComputeNormalizationConstant(true, maxima);
    EXPECT_EQ(1.0, f.NormalizationScale());
  }
  FacilityLocationFunction<T> negative(Matrix<T>::Constant(3, 2, T(-1)));
  ExpectLocatedError(
      [&] {
        negative.ComputeNormalizationConstant(false, std::vector<T>{T(-1), T(-1)});
      },
      file, "ComputeNormalizationConstant",
      "Invalid possibly all zero or negative matrix, f(V) = 0 <= 0.");
  ExpectLocatedError([&] { negative.ComputeNormalizationConstant(false, std::vector<T>{T(1)}); },
                     file, "ComputeNormalizationConstant",
                     "Invalid argument, 1 maxima for 2 landmarks.");
  // Bad entries in several of the parts: the earliest wins; the scale stays.
  Matrix<T> m = RandomMatrix<T>(9, 4, 3);
  m(7, 0) = std::numeric_limits<T>::infinity();
  m(4, 2) = std::numeric_limits<T>::quiet_NaN();
  m(5, 1) = std::numeric_limits<T>::quiet_NaN();
  FacilityLocationFunction<T> bad(m);
  for (int threads : {1, 2, 3, 4, 9, 16}) {
    SCOPED_TRACE("threads = " + std::to_string(threads));
    ExpectLocatedError([&] { bad.ComputeNormalizationConstant(false, threads); }, file,
                       "ComputeNormalizationConstant", "Invalid facility location matrix.",
                       "Matrix contains IEEE FP NaN value at (row,col)=(4,2).");
    EXPECT_EQ(1.0, bad.NormalizationScale());
  }
  ExpectLocatedError([&] { bad.ComputeNormalizationConstant(false, -1); }, file,
                     "ComputeNormalizationConstant", "Invalid thread count -1.");
}

// The gain of one candidate is summed in float in the fixed four-lane order:
// rows of widely spread magnitudes, every tail length, against a context
// holding some elements (terms max(0, S - m)), so that the order of the float
// additions decides which small terms survive rounding.
TEST(FacilityLocationLaneOrder, FloatGainUsesFourLaneOrder) {
  std::mt19937 rng(2024);
  std::uniform_real_distribution<double> exponent(-8.0, 8.0);
  int differs_from_plain = 0;
  for (int k = 1; k <= 23; ++k) {
    const int n = 12;
    Matrix<float> m(n, k);
    for (int v = 0; v < n; ++v) {
      for (int i = 0; i < k; ++i) m(v, i) = static_cast<float>(std::pow(10.0, exponent(rng)));
    }
    FacilityLocationFunction<float> f(m);
    auto context = f.MakeGrowingContext(SetOf(n, {0, 1}));
    std::vector<int> candidates;
    for (int v = 2; v < n; ++v) candidates.push_back(v);
    std::vector<double> batched(candidates.size());
    context->DisjointGains(candidates.data(), static_cast<int>(candidates.size()), batched.data());
    for (std::size_t j = 0; j < candidates.size(); ++j) {
      const int v = candidates[j];
      std::vector<float> terms(k);
      float plain = 0.0f;
      for (int i = 0; i < k; ++i) {
        terms[i] = std::max(0.0f, m(v, i) - std::max({0.0f, m(0, i), m(1, i)}));
        plain += terms[i];
      }
      const float expected = LaneOrderSum(terms);
      differs_from_plain += expected != plain;
      EXPECT_EQ(static_cast<double>(expected), context->DisjointGain(v)) << k << ", " << v;
      EXPECT_EQ(static_cast<double>(expected), batched[j]) << k << ", " << v;
    }
  }
  // The data must be able to tell the orders apart for the test to mean anything.
  EXPECT_GT(differs_from_plain, 10);
}

template <typename T>
using Sparse = typename SparseFacilityLocationFunction<T>::SparseMatrix;

template <typename T>
Sparse<T> FromTriplets(int rows, int cols,
                       const std::vector<Eigen::Triplet<T, std::int32_t>>& triplets) {
  Sparse<T> m(rows, cols);
  m.setFromTriplets(triplets.begin(), triplets.end());
  return m;
}

TYPED_TEST(FacilityLocationTest, ElementsWithoutEntriesAndRawScale) {
  using T = TypeParam;
  Sparse<T> m = FromTriplets<T>(
      4, 3, {{0, 0, T(0.5)}, {0, 2, T(0.25)}, {2, 0, T(1.5)}, {2, 1, T(-2)}, {3, 2, T(0.75)}});
  SparseFacilityLocationFunction<T> f(std::move(m), true);
  EXPECT_EQ(0, m.nonZeros()) << "the caller's matrix was not taken over";
  EXPECT_EQ(1.0, f.NormalizationScale());
  // f(V) = max(0.5, 1.5) + max(0, -2) + max(0.25, 0.75).
  EXPECT_DOUBLE_EQ(2.25, f.Evaluate(FixedGroundSet(4)));
  EXPECT_EQ(5, f.MatrixStoredEntries());
  // Single elements are not clamped: f({2}) = 1.5 - 2.
  EXPECT_DOUBLE_EQ(-0.5, f.Evaluate(2));
  EXPECT_DOUBLE_EQ(1.5, f.Evaluate(SetOf(4, {2})));
  // Element 1 stores nothing: gain 0, adding it changes only the set.
  const UnorderedHashSet A = SetOf(4, {0});
  auto context = f.MakeGrowingContext(A);
  EXPECT_EQ(0.0, context->DisjointGain(1));
  EXPECT_EQ(0.0, f.Gain(1, A));
  const double before = context->CurrentValue();
  EXPECT_FALSE(context->AddNewElementToContext(1, true));
  EXPECT_EQ(before, context->CurrentValue());
  EXPECT_TRUE(context->CurrentSet().contains(1));

  // An uncompressed matrix (built by insert) is accepted and compressed.
  Sparse<T> uncompressed(3, 3);
  uncompressed.reserve(Eigen::VectorXi::Constant(3, 2));
  uncompressed.insert(2, 1) = T(0.5);
  uncompressed.insert(0, 1) = T(0.25);
  uncompressed.insert(0, 0) = T(1);
  ASSERT_FALSE(uncompressed.isCompressed());
  SparseFacilityLocationFunction<T> h(std::move(uncompressed), true);
  EXPECT_TRUE(h.Matrix().isCompressed());
  EXPECT_DOUBLE_EQ(1.5, h.Evaluate(FixedGroundSet(3)));
  EXPECT_EQ("Sparse FL, |V|=3, #landmarks=3", h.Description());
}

TYPED_TEST(FacilityLocationTest, FailuresLeaveTheCallersMatrix) {
  using T = TypeParam;
  const std::string file = "SparseFacilityLocationFunction";
  const std::string no_value = "Invalid matrix, f(V) = 0 <= 0.";
  // No stored entry or only negative ones (f(V) = 0), infinity (nested
  // value-check error), empty shapes: the matrix goes back to the caller intact.
  const struct {
    Sparse<T> m;
    bool skip;
    std::string text, nested;
  } cases[] = {{Sparse<T>(5, 4), false, no_value, ""},
               {FromTriplets<T>(2, 2, {{1, 0, T(-3)}, {0, 1, T(-1)}}), false, no_value, ""},
               {FromTriplets<T>(2, 3, {{1, 2, std::numeric_limits<T>::infinity()}}), true,
                "Invalid sparse facility location matrix.", "Inf"},
               {Sparse<T>(3, 0), true, "Invalid argument, number_of_concepts=3.", ""},
               {Sparse<T>(0, 3), true, "Invalid argument, ground_set_size=0.", ""}};
  for (const auto& c : cases) {
    Sparse<T> m = c.m;
    ExpectLocatedError([&] { SparseFacilityLocationFunction<T> f(std::move(m), c.skip); }, file,
                       file, c.text, c.nested);
    ASSERT_EQ(c.m.rows(), m.rows());
    ASSERT_EQ(c.m.cols(), m.cols());
    EXPECT_EQ(c.m.nonZeros(), m.nonZeros());
    EXPECT_TRUE(c.m.toDense() == m.toDense()) << c.text;
  }
}

// Facility location over storage it shares rather than owns: a .npy file
// mapped into memory. Every answer must equal, bit for bit, the answer of the
// function built from the same file read into memory; writes must stay with
// the function that makes them.
using testing::ReadFile;
using testing::TempDir;

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

TYPED_TEST(FacilityLocationTest, MappedFileGivesTheReadFilesAnswersBitForBit) {
  using T = TypeParam;
  TempDir dir;
  const std::string name = dir.File("sim.npy");
  // k around multiples of four, for every tail of the four-lane sums.
  const struct { int n, k; } shapes[] = {{1, 1}, {37, 3}, {33, 5}, {20, 6}, {64, 13}, {9, 64}};
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
    UnorderedHashSet some(shape.n);
    for (int v = 0; v < shape.n; v += 3) some.insert(v);
    EXPECT_EQ(mapped.Evaluate(some), read.Evaluate(some));

    // Soft facility location over the mapped file: the read function's
    // answers, bit for bit.
    auto shared = matrixio::MappedNumpyMatrix<T>::Map(name);
    ASSERT_TRUE(shared);
    const SoftFacilityLocationFunction<T> soft_mapped(
        typename SoftFacilityLocationFunction<T>::ElementMajor{}, std::move(*shared).Share(),
        shape.n, shape.k, 0.3);
    const SoftFacilityLocationFunction<T> soft_read(matrixio::ReadMatrixFromNumpyFile<T>(name),
                                                    0.3);
    EXPECT_TRUE(soft_mapped.HasSharedStorage());
    const auto soft_read_context = soft_read.MakeGrowingContext(some);
    const auto soft_mapped_context = soft_mapped.MakeGrowingContext(some);
    for (int v = 0; v < shape.n; ++v) {
      EXPECT_EQ(mapped.Gain(v, some), read.Gain(v, some));
      EXPECT_EQ(soft_mapped_context->DisjointGain(v), soft_read_context->DisjointGain(v));
    }
    EXPECT_EQ(soft_mapped.Evaluate(some), soft_read.Evaluate(some));
  }
}

TYPED_TEST(FacilityLocationTest, WritesStayWithTheFunctionThatMakesThem) {
  using T = TypeParam;
  TempDir dir;
  const std::string name = dir.File("sim.npy");
  const Matrix<T> m = RandomMatrix<T>(6, 5, 21);
  matrixio::WriteMatrixToNumpyFile<T>(name, m, false);
  const std::string file_bytes = ReadFile(name);

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
  EXPECT_EQ(ReadFile(name), file_bytes);
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
  EXPECT_EQ(ReadFile(name), file_bytes);
  // The original holds its storage alone again: it writes in place.
  f.MutableRow(0)[0] = T(8);
  EXPECT_EQ(f.Row(0), base);
  EXPECT_EQ(clone->Similarity(0, 0), m(0, 0));

  // An owned matrix is copied by a clone, as before.
  FacilityLocationFunction<T> owned(m);
  std::unique_ptr<FacilityLocationFunction<T>> owned_clone = owned.clone();
  EXPECT_FALSE(owned_clone->HasSharedStorage());
  EXPECT_NE(owned_clone->Row(0), owned.Row(0));
  owned_clone->MutableRow(0)[0] = T(3);
  EXPECT_EQ(owned.Similarity(0, 0), m(0, 0));
}

TYPED_TEST(FacilityLocationTest, ConstructionErrors) {
  using T = TypeParam;
  using F = FacilityLocationFunction<T>;
  auto values = std::shared_ptr<T>(new T[6](), std::default_delete<T[]>());
  const std::ptrdiff_t too_many = std::ptrdiff_t{INT_MAX} + 1;
  const std::string file = "FacilityLocationFunction";
  testing::ExpectLocatedErrors(
      file, {{[&] { F(typename F::ElementMajor{}, nullptr, 2, 3); }, file,
              "Invalid argument, no similarity storage."},
             {[&] { F(typename F::ElementMajor{}, values, 0, 3); }, file,
              "Invalid argument, ground_set_size=0."},
             {[&] { F(typename F::ElementMajor{}, values, 2, 0); }, file,
              "Invalid argument, number_of_concepts=2."},
             {[&] { F(typename F::ElementMajor{}, values, too_many, 1); }, file,
              "Invalid argument, ground_set_size=" + std::to_string(too_many) + "."},
             {[&] { F(typename F::ElementMajor{}, values, 1, too_many); }, file,
              "Invalid argument, number_of_concepts=1."}});
  const std::string soft = "SoftFacilityLocationFunction";
  testing::ExpectLocatedError(
      [] {
        SoftFacilityLocationFunction<T>(typename SoftFacilityLocationFunction<T>::ElementMajor{},
                                        nullptr, 2, 3, 1.0);
      },
      soft, soft, "Invalid argument, no similarity storage.");
  // A valid one reads the values where they are.
  values.get()[4] = T(2);
  F f(typename F::ElementMajor{}, values, 2, 3);
  EXPECT_EQ(f.Row(0), values.get());
  EXPECT_EQ(f.Similarity(1, 1), T(2));
}

}  // namespace
}  // namespace velmor
