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
#include "support/float_types.h"
#include "support/temp_files.h"

namespace velmor {
namespace {

using testing::RandomMatrix;
using testing::ReadFile;
using testing::TempDir;

template <typename T>
using Matrix = typename FacilityLocationFunction<T>::DenseMatrix;

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
TYPED_TEST_SUITE(SharedStorageFacilityLocation, testing::FloatTypes);

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

    // The mapped function against its own whole-set evaluation.
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

TYPED_TEST(SharedStorageFacilityLocation, ConstructionErrors) {
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
