#ifndef VELMOR_FUNCTIONS_SOFTFACILITYLOCATIONFUNCTION_H_
#define VELMOR_FUNCTIONS_SOFTFACILITYLOCATIONFUNCTION_H_

// Soft facility location: dense facility location with the hard maximum per
// landmark replaced by a smooth maximum of softness lambda > 0.
//
// For a landmark i and a set A,
//
//   F_i(A) = lambda * log(1 + sum over a in A of exp(S(a, i) / lambda)),
//   f(A)   = scale * sum over i in [0, k) of F_i(A),
//
// so f(empty set) = 0. The 1 inside the logarithm acts as an always-present
// constant member of value 0. As lambda goes to 0, F_i(A) approaches
// max(0, max over a in A of S(a, i)) from above, by at most
// lambda * log(|A| + 1). f is submodular and monotone nondecreasing.
//
// Every context keeps each landmark in a shifted, overflow-free form: m_i, the
// largest value among the members (the constant member included, so m_i >= 0),
// and z_i = sum over the members (constant included) of
// exp((S(a, i) - m_i) / lambda) >= 1, so that F_i(A) = m_i + lambda * log(z_i)
// and no exponent is ever positive, whatever the scale of S against lambda.
// A context's value is scale * (lambda * (sum of log z_i) + sum of m_i).
//
// Storage is element-major as in FacilityLocationFunction: the k values of
// element v are contiguous (a k x n column-major matrix, column v = element v).
// Each landmark of a gain costs one exp and one log.
//
// Errors are std::invalid_argument with location-prefixed messages. T is float
// or double; values, gains and losses are double.

#include <Eigen/Core>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "functions/SetFunction.h"
#include "sets/Set.h"

namespace velmor {

// The soft facility-location kind, dense or sparse: submodular, with a
// softness value lambda and its inverse 1 / lambda (used in every exponent).
class SoftFacilityLocationFunctionAbstract
    : public clone_inherit<abstract_method<SoftFacilityLocationFunctionAbstract>,
                           SubmodularFunction> {
 public:
  // Stores lambda and 1 / lambda. Throws std::invalid_argument
  // "Invalid argument, must have softness_value (=%e) > 0." unless lambda > 0
  // (NaN included), and "Invalid argument, softness_value (=%e) must be finite
  // with a finite inverse." for an infinite lambda or one so small that
  // 1 / lambda overflows. A failed call changes nothing.
  virtual void CheckAndAssignSoftnessValue(double softness_value) = 0;

  double SoftnessValue() const { return softness_; }
  double InverseSoftnessValue() const { return inverse_softness_; }

 protected:
  SoftFacilityLocationFunctionAbstract() = default;
  SoftFacilityLocationFunctionAbstract(const SoftFacilityLocationFunctionAbstract&) = default;

  // ----- Per-landmark arithmetic of the shifted form -------------------------
  // A landmark's members are summarized by m (largest value, constant member
  // included) and z (shifted sum, >= 1); inv = 1 / lambda. The landmark's
  // part of a gain or loss is linear + lambda * log_part.

  // The change of F_i when a member of value d joins: if d > m, linear d - m
  // and log part log((exp((m - d)/lambda) z + 1) / z); otherwise linear 0 and
  // log part log((exp((d - m)/lambda) + z) / z). Both logs are taken as
  // log1p of the ratio minus 1, which keeps small gains accurate.
  template <typename T>
  static void SoftGainParts(T d, T m, double z, double inv, double& linear, double& log_part) {
    const double dd = static_cast<double>(d);
    const double dm = static_cast<double>(m);
    if (d > m) {
      const double e = std::exp((dm - dd) * inv);
      linear += dd - dm;
      log_part += std::log1p((e * z + (1.0 - z)) / z);
    } else {
      log_part += std::log1p(std::exp((dd - dm) * inv) / z);
    }
  }

  // Absorbs a member of value d: if d > m it becomes the new shift,
  // z = exp((m - d)/lambda) z + 1, m = d (returns true); otherwise
  // z += exp((d - m)/lambda) (returns false).
  template <typename T>
  static bool SoftAbsorb(T d, T& m, double& z, double inv) {
    if (d > m) {
      z = std::exp((static_cast<double>(m) - static_cast<double>(d)) * inv) * z + 1.0;
      m = d;
      return true;
    }
    z += std::exp((static_cast<double>(d) - static_cast<double>(m)) * inv);
    return false;
  }

  // Shrinking state of a landmark: m and z as above, s the second largest
  // value among the members (constant included; -infinity when the constant
  // is the only member), and w the sum over all members but one holder of m
  // of exp((x - s)/lambda) (>= 1 when s is finite, 0 otherwise). With w the
  // loss of a holder of m needs no difference z - 1, which loses every digit
  // when the other members' terms are tiny against 1.
  //
  // The change of F_i when a member of value d leaves: if d == m, linear
  // m - s and log part log1p(exp((s - m)/lambda) w) - log(w); otherwise
  // linear 0 and log part -log1p(-exp((d - m)/lambda) / z).
  template <typename T>
  static void SoftLossParts(T d, T m, T s, double z, double w, double inv, double& linear,
                            double& log_part) {
    const double dm = static_cast<double>(m);
    if (d == m) {
      const double ds = static_cast<double>(s);
      linear += dm - ds;
      log_part += std::log1p(std::exp((ds - dm) * inv) * w) - std::log(w);
    } else {
      log_part -= std::log1p(-std::exp((static_cast<double>(d) - dm) * inv) / z);
    }
  }

  // Removes a member of value d with m > d != s from z and w; clamps both at
  // 1, their exact lower bound, against rounding.
  template <typename T>
  static void SoftRemove(T d, T m, T s, double& z, double& w, double inv) {
    const double dd = static_cast<double>(d);
    z -= std::exp((dd - static_cast<double>(m)) * inv);
    w -= std::exp((dd - static_cast<double>(s)) * inv);
    if (z < 1.0) z = 1.0;
    if (w < 1.0) w = 1.0;
  }

  // Top-two update of a landmark's (m, s) with a member of value x.
  template <typename T>
  static void SoftTopTwo(T x, T& m, T& s) {
    if (x > m) {
      s = m;
      m = x;
    } else if (x > s) {
      s = x;
    }
  }

  // Adds a member of value x to the (z, w) sums of a landmark whose (m, s) are
  // final; w must start at -1 (and z at 0) before the first member, the
  // constant one included.
  template <typename T>
  static void SoftAccumulate(T x, T m, T s, double& z, double& w, double inv) {
    const double dx = static_cast<double>(x);
    z += std::exp((dx - static_cast<double>(m)) * inv);
    w += x < m ? std::exp((dx - static_cast<double>(s)) * inv) : 1.0;
  }

  // lambda * log(1 + exp(x / lambda)) = lambda * (max(y, 0) + log1p(exp(-|y|)))
  // with y = x / lambda, which neither overflows nor loses small values.
  static double SoftSingle(double x, double inv) {
    const double y = x * inv;
    return (y > 0 ? y : 0.0) + std::log1p(std::exp(-std::fabs(y)));
  }

  double softness_ = 1.0;
  double inverse_softness_ = 1.0;
};

template <typename T>
class SoftFacilityLocationFunction
    : public clone_inherit<SoftFacilityLocationFunction<T>, SoftFacilityLocationFunctionAbstract> {
 public:
  // Dynamic-size column-major matrix of T.
  using DenseMatrix = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;

  // Tag choosing the constructor that takes the element-major k x n matrix.
  struct ElementMajor {};

  // Growing state for A: per landmark m_i and z_i (shifted form), and the raw
  // (unscaled) value lambda * (sum of log z_i) + sum of m_i.
  class SoftFacilityLocationFunctionGrowingContextExternal final
      : public SetFunction::SetFunctionGrowingContextExternal {
   public:
    // The state of the empty set (m_i = 0, z_i = 1).
    explicit SoftFacilityLocationFunctionGrowingContextExternal(
        const SoftFacilityLocationFunction* function);
    std::unique_ptr<SetFunctionGrowingContextExternal> clone() const override;
    // f(v | A) = scale * (lambda * sum of log parts + sum of linear parts), in
    // double, landmark order. O(k), allocates nothing. Throws
    // "Invalid element = %d.".
    double DisjointGain(int v) const override;
    // Absorbs v into every landmark; recomputes the raw value; returns whether
    // any m_i changed. Throws "Invalid element = %d.".
    bool AddNewElementToContext(int v) override;
    void ResetToEmptySet() override;
    // scale * raw value.
    double CurrentValue() const override;

    const std::vector<T>& Shifts() const { return shifts_; }
    const std::vector<double>& ShiftedSums() const { return sums_; }

   private:
    const SoftFacilityLocationFunction* function_;
    std::vector<T> shifts_;     // m_i
    std::vector<double> sums_;  // z_i
    double raw_value_ = 0.0;
  };

  // Shrinking state for A: per landmark m_i, z_i, the second largest value
  // s_i and the runner-up sum w_i (see SoftLossParts).
  class SoftFacilityLocationFunctionShrinkingContextExternal final
      : public SetFunction::SetFunctionShrinkingContextExternal {
   public:
    explicit SoftFacilityLocationFunctionShrinkingContextExternal(
        const SoftFacilityLocationFunction* function);
    // Two scans of A. O(|A| k).
    void AssignContext(const Set& A) override;
    std::unique_ptr<SetFunctionShrinkingContextExternal> clone() const override;
    // f(A) - f(A - v) for v in A. O(k). Throws "Invalid element = %d.".
    double SubsetLoss(int v) const override;
    // Takes v's term out of each landmark; a landmark where v holds the
    // largest or second largest value is rebuilt from the other members of A.
    // Throws "Invalid element = %d.".
    void RemoveExistingElementFromContext(const Set& A, int v) override;
    double CurrentValue() const override;

   private:
    void RecomputeRawValue();

    const SoftFacilityLocationFunction* function_;
    std::vector<T> shifts_;            // m_i
    std::vector<T> runners_up_;        // s_i
    std::vector<double> sums_;         // z_i
    std::vector<double> runner_sums_;  // w_i
    std::vector<int> affected_;        // scratch for the removal
    double raw_value_ = 0.0;
  };

  using SoftFacilityLocationFunctionGrowingContext = SetFunction::DerivedSetFunctionGrowingContext<
      SoftFacilityLocationFunction, SoftFacilityLocationFunctionGrowingContextExternal,
      UnorderedHashSet>;
  using SoftFacilityLocationFunctionShrinkingContext =
      SetFunction::DerivedSetFunctionShrinkingContext<
          SoftFacilityLocationFunction, SoftFacilityLocationFunctionShrinkingContextExternal,
          UnorderedHashSet>;

  // A zero-filled n x k matrix, scale 1.0, softness lambda. Throws
  // "Invalid argument, ground_set_size=%d." for n < 1,
  // "Invalid argument, number_of_concepts=%d." (printing n) for k < 1, then
  // as CheckAndAssignSoftnessValue; std::bad_alloc when the matrix cannot be
  // allocated.
  SoftFacilityLocationFunction(int ground_set_size, int number_of_concepts, double softness_value);

  // From an n x k matrix whose row v holds element v's similarities; copied
  // into element-major order. Same errors.
  SoftFacilityLocationFunction(const DenseMatrix& similarities, double softness_value);

  // From the k x n element-major matrix itself (column v = element v), moved
  // in without a copy. Same errors (n = columns, k = rows).
  SoftFacilityLocationFunction(ElementMajor, DenseMatrix&& landmarks_by_elements,
                               double softness_value);

  void CheckAndAssignSoftnessValue(double softness_value) override;

  // 1. When MatrixValueChecksEnabled(): every S(v, i), element by element and
  //    landmark by landmark, must be free of NaN and infinity; the first
  //    failure is thrown nested in "Invalid soft facility location matrix.".
  // 2. Unless `skip`, f(V) is computed with scale 1; f(V) <= 0 throws
  //    "Invalid matrix, f(V) = %g <= 0."; otherwise scale = 1 / f(V). With
  //    `skip`, scale = 1. A failed call leaves the scale as it was.
  void ComputeNormalizationConstant(bool skip);

  // scale * lambda * sum over i of (x_i + log1p(exp(-x_i))), x_i = S(v, i) /
  // lambda, in double (taken as max(x_i, 0) + log1p(exp(-|x_i|)), which is
  // the same for x_i >= 0 and does not overflow for negative x_i). Throws
  // "Invalid element = %d.".
  double Evaluate(int v) const override;
  // Two passes over the members: the shifts, then the shifted sums.
  double Evaluate(const Set& A) const override;
  double EvaluateUnion(int v, const Set& A) const override;
  double EvaluateUnion(const Set& A, const Set& B) const override;
  std::pair<double, double> EvaluateUnionAndSecondArg(int v, const Set& A) const override;
  double EvaluateAfterSubtraction(const Set& A, int v) const override;
  double EvaluateAfterSubtraction(const Set& A, const Set& B) const override;
  // The per-landmark gain formula against the state of A; 0.0 when A holds v.
  double Gain(int v, const Set& A) const override;
  // The per-landmark gain formula of v against the state of A - v; 0.0 when
  // A does not hold v.
  double Loss(int v, const Set& A) const override;

  int GroundSetSize() const override { return n_; }
  int NumberOfLandmarks() const override { return k_; }
  long MatrixRows() const override { return n_; }
  long MatrixColumns() const override { return k_; }
  long MatrixStoredEntries() const override { return static_cast<long>(n_) * k_; }
  // "Soft Dense FL, |V|=<n>, #landmarks=<k>".
  std::string Description() const override;
  bool IsMonotoneNondecreasing() const override { return true; }

  std::unique_ptr<SetFunction::SetFunctionGrowingContext> MakeGrowingContext(
      const Set& A) const override;
  std::unique_ptr<SetFunction::SetFunctionShrinkingContext> MakeShrinkingContext(
      const Set& A) const override;
  std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal> MakeGrowingContextExternal(
      const Set& A) const override;
  std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal> MakeShrinkingContextExternal(
      const Set& A) const override;
  void AssignContext(SetFunction::SetFunctionGrowingContext& context, const Set& A) const override;
  void AssignContext(SetFunction::SetFunctionShrinkingContext& context,
                     const Set& A) const override;
  void AssignContext(SetFunction::SetFunctionGrowingContextExternal& context,
                     const Set& A) const override;
  void AssignContext(SetFunction::SetFunctionShrinkingContextExternal& context,
                     const Set& A) const override;

  int NumberOfConcepts() const { return k_; }
  double NormalizationScale() const { return scale_; }
  // S(v, i), unchecked.
  T Similarity(int v, int i) const { return Row(v)[i]; }
  // Element v's k similarities, contiguous; unchecked.
  const T* Row(int v) const { return matrix_.data() + static_cast<std::ptrdiff_t>(v) * k_; }
  T* MutableRow(int v) { return matrix_.data() + static_cast<std::ptrdiff_t>(v) * k_; }
  const DenseMatrix& ElementMajorMatrix() const { return matrix_; }

 private:
  // Shifted state (m, z) of the members that `for_each` visits.
  template <typename ForEach>
  void BuildState(ForEach&& for_each, std::vector<T>& shifts, std::vector<double>& sums) const;
  // lambda * (sum of log z_i) + sum of m_i, unscaled.
  double RawValue(const T* shifts, const double* sums) const;
  // Unscaled gain of v against a shifted state.
  double RawGain(int v, const T* shifts, const double* sums) const;

  DenseMatrix matrix_;  // k x n
  int n_;
  int k_;
  double scale_ = 1.0;
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SOFTFACILITYLOCATIONFUNCTION_H_
