#ifndef VELMOR_FUNCTIONS_SETFUNCTIONSKELETON_H_
#define VELMOR_FUNCTIONS_SETFUNCTIONSKELETON_H_

// The plumbing that every concrete set function shares, written once.
//
// SetFunctionSkeleton<F, Kinds...> sits between a function class F and its
// kinds (SubmodularFunction, FacilityLocationFunctionAbstract, ...):
//
//   template <typename T>
//   class MyFunction
//       : public clone_inherit<MyFunction<T>, SetFunctionSkeleton<MyFunction<T>,
//       SubmodularFunction>>
//
// It supplies the context factories and AssignContext overloads, and every
// whole-set operation with its argument checks; F writes only what is its own:
//   - static const char* SourceFile(): the base name of F's source file (which
//     its header shares: VELMOR_SOURCE_FILE there), the file part of F's
//     messages;
//   - GrowingContextExternal and ShrinkingContextExternal: its external
//     contexts, constructible from `const F*` in the state of the empty set
//     (VELMOR_CONTEXT_NAMES(F) gives them and the owning contexts F's names);
//   - the unchecked evaluations (arguments already checked): ElementValue(v);
//     Value(expression), the value of the set that an internal::SetExpression
//     describes (the set of Evaluate, EvaluateUnion or
//     EvaluateAfterSubtraction); UnionAndSecondValues(v, A); GainOf(v, A) for
//     v not in A; LossOf(v, A).
// A function whose value is read from a state built over the members of a set
// may instead give the state and four operations on it, from which the
// skeleton makes those evaluations (visiting the members in the order
// SetExpression::ForEachMember gives):
//   - StateOf(for_each): the state of the members that for_each(visit)
//     passes to visit(a) (it may call for_each more than once);
//   - ValueOf(state), GainOver(v, state): f of the state's members, and the
//     gain of v against them;
//   - Absorb(v, state): v joins the state.
// F grants the skeleton access to these with
// `friend class SetFunctionSkeleton<F, Kinds...>;`.
//
// Every message keeps F's location prefix: the file part is F::SourceFile(),
// the function part the name of the operation, the line the line of the check.
// F::kMessageEnd ends the element and size messages ("." unless F's family
// says otherwise).

#include <memory>
#include <string>
#include <utility>

#include "functions/SetFunction.h"
#include "sets/Set.h"

namespace velmor {
namespace internal {

// Where a message is thrown from: the parts of its location prefix.
struct MessageSite {
  const char* file;
  const char* function;
  unsigned line;
};

// Throws std::invalid_argument with a printf-formatted message located at `site`.
[[noreturn]] void ThrowInvalidArgument(const MessageSite& site, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// From inside a catch block: std::invalid_argument with `text` located at
// `site`, carrying the exception being handled as its nested cause.
[[noreturn]] void ThrowInvalidArgumentNested(const MessageSite& site, const std::string& text);

}  // namespace internal
}  // namespace velmor

// The site of a message about set function class F: F's source file, the
// enclosing function and the current line.
#define VELMOR_SITE(F) (::velmor::internal::MessageSite{F::SourceFile(), __func__, __LINE__})

// Argument checks of F's operations, each throwing std::invalid_argument from
// the site of the check:
//   "Invalid element = %d" for v outside [0, n),
//   "Too large ground set size = %d" for a set over more than n elements,
// both ended by F::kMessageEnd, and "Invalid ground set size, %d != %d." for a
// set over another ground set than the function's n elements.
#define VELMOR_CHECK_ELEMENT(F, v, n)                                                         \
  do {                                                                                        \
    if ((v) < 0 || (v) >= (n)) [[unlikely]] {                                                 \
      ::velmor::internal::ThrowInvalidArgument(VELMOR_SITE(F), "Invalid element = %d%s", (v), \
                                               F::kMessageEnd);                               \
    }                                                                                         \
  } while (false)

#define VELMOR_CHECK_NOT_LARGER(F, A, n)                                                           \
  do {                                                                                             \
    if ((A).GroundSetSize() > (n)) [[unlikely]] {                                                  \
      ::velmor::internal::ThrowInvalidArgument(VELMOR_SITE(F), "Too large ground set size = %d%s", \
                                               (A).GroundSetSize(), F::kMessageEnd);               \
    }                                                                                              \
  } while (false)

#define VELMOR_CHECK_SAME_GROUND_SET(F, A, n)                                              \
  do {                                                                                     \
    if ((A).GroundSetSize() != (n)) [[unlikely]] {                                         \
      ::velmor::internal::ThrowInvalidArgument(                                            \
          VELMOR_SITE(F), "Invalid ground set size, %d != %d.", (A).GroundSetSize(), (n)); \
    }                                                                                      \
  } while (false)

// Inside the class F: F's context names, <F>GrowingContextExternal and
// <F>ShrinkingContextExternal for its external contexts F::GrowingContextExternal
// and F::ShrinkingContextExternal, and <F>GrowingContext and
// <F>ShrinkingContext for the owning contexts made of them.
#define VELMOR_CONTEXT_NAMES(F)                                                    \
  using F##GrowingContextExternal = typename F::GrowingContextExternal;            \
  using F##ShrinkingContextExternal = typename F::ShrinkingContextExternal;        \
  using F##GrowingContext =                                                        \
      SetFunction::DerivedSetFunctionGrowingContext<F, F##GrowingContextExternal>; \
  using F##ShrinkingContext =                                                      \
      SetFunction::DerivedSetFunctionShrinkingContext<F, F##ShrinkingContextExternal>

namespace velmor {
namespace internal {

// The set that a whole-set value evaluation asks about, as the public
// operation received it: A, A + v, A u B, A - v or A \ B.
class SetExpression {
 public:
  static SetExpression Of(const Set& A) { return {A, nullptr, 0, Operation::kSet}; }
  static SetExpression Union(const Set& A, int v) {
    return {A, nullptr, v, Operation::kAddElement};
  }
  static SetExpression Union(const Set& A, const Set& B) { return {A, &B, 0, Operation::kAddSet}; }
  static SetExpression Difference(const Set& A, int v) {
    return {A, nullptr, v, Operation::kRemoveElement};
  }
  static SetExpression Difference(const Set& A, const Set& B) {
    return {A, &B, 0, Operation::kRemoveSet};
  }

  // A, the set the others are added to or taken from.
  const Set& First() const { return *first_; }
  // Whether elements are taken from A (A - v or A \ B).
  bool Subtracts() const {
    return operation_ == Operation::kRemoveElement || operation_ == Operation::kRemoveSet;
  }

  // visit(x) for each member of the expression's set: the members of A in A's
  // iteration order, less those taken; then the added element, or the members
  // of B not in A in B's order, unless already in A.
  template <typename Visit>
  void ForEachMember(Visit&& visit) const {
    const Set& A = *first_;
    switch (operation_) {
      case Operation::kRemoveElement:
        for (int a : A) {
          if (a != element_) visit(a);
        }
        return;
      case Operation::kRemoveSet:
        for (int a : A) {
          if (!second_->contains(a)) visit(a);
        }
        return;
      default:
        break;
    }
    const bool element_added = operation_ == Operation::kAddElement && !A.contains(element_);
    for (int a : A) visit(a);
    if (element_added) visit(element_);
    if (operation_ != Operation::kAddSet) return;
    for (int b : *second_) {
      if (!A.contains(b)) visit(b);
    }
  }

  // The same operation asked of f, with `first` in place of A:
  // f.Evaluate(first), f.EvaluateUnion(v, first), f.EvaluateUnion(first, B),
  // f.EvaluateAfterSubtraction(first, v) or f.EvaluateAfterSubtraction(first, B).
  double EvaluateWith(const SetFunction& f, const Set& first) const {
    switch (operation_) {
      case Operation::kAddElement:
        return f.EvaluateUnion(element_, first);
      case Operation::kAddSet:
        return f.EvaluateUnion(first, *second_);
      case Operation::kRemoveElement:
        return f.EvaluateAfterSubtraction(first, element_);
      case Operation::kRemoveSet:
        return f.EvaluateAfterSubtraction(first, *second_);
      default:
        return f.Evaluate(first);
    }
  }

 private:
  enum class Operation { kSet, kAddElement, kAddSet, kRemoveElement, kRemoveSet };

  SetExpression(const Set& first, const Set* second, int element, Operation operation)
      : first_(&first), second_(second), element_(element), operation_(operation) {}

  const Set* first_;
  const Set* second_;
  int element_;
  Operation operation_;
};

}  // namespace internal

// (An abstract clone_inherit itself, so that a function of two kinds has one
// final overrider of the cloning hook.)
template <typename F, typename... Kinds>
class SetFunctionSkeleton
    : public clone_inherit<abstract_method<SetFunctionSkeleton<F, Kinds...>>, Kinds...> {
  using Base = clone_inherit<abstract_method<SetFunctionSkeleton<F, Kinds...>>, Kinds...>;

 public:
  using Base::Base;

  static constexpr const char* kMessageEnd = ".";

  // Throws "Invalid element = %d".
  double Evaluate(int v) const override {
    VELMOR_CHECK_ELEMENT(F, v, Size());
    return Self().ElementValue(v);
  }
  // Every operation taking a set throws "Too large ground set size = %d" for
  // a set over more than n elements (a smaller ground set is accepted), and
  // every operation taking an element "Invalid element = %d", the set checked
  // first.
  double Evaluate(const Set& A) const override {
    VELMOR_CHECK_NOT_LARGER(F, A, Size());
    return Self().Value(internal::SetExpression::Of(A));
  }
  double EvaluateUnion(int v, const Set& A) const override {
    VELMOR_CHECK_NOT_LARGER(F, A, Size());
    VELMOR_CHECK_ELEMENT(F, v, Size());
    return Self().Value(internal::SetExpression::Union(A, v));
  }
  double EvaluateUnion(const Set& A, const Set& B) const override {
    VELMOR_CHECK_NOT_LARGER(F, A, Size());
    VELMOR_CHECK_NOT_LARGER(F, B, Size());
    return Self().Value(internal::SetExpression::Union(A, B));
  }
  std::pair<double, double> EvaluateUnionAndSecondArg(int v, const Set& A) const override {
    VELMOR_CHECK_NOT_LARGER(F, A, Size());
    VELMOR_CHECK_ELEMENT(F, v, Size());
    return Self().UnionAndSecondValues(v, A);
  }
  double EvaluateAfterSubtraction(const Set& A, int v) const override {
    VELMOR_CHECK_NOT_LARGER(F, A, Size());
    VELMOR_CHECK_ELEMENT(F, v, Size());
    return Self().Value(internal::SetExpression::Difference(A, v));
  }
  double EvaluateAfterSubtraction(const Set& A, const Set& B) const override {
    VELMOR_CHECK_NOT_LARGER(F, A, Size());
    VELMOR_CHECK_NOT_LARGER(F, B, Size());
    return Self().Value(internal::SetExpression::Difference(A, B));
  }
  // 0.0 when A holds v.
  double Gain(int v, const Set& A) const override {
    VELMOR_CHECK_NOT_LARGER(F, A, Size());
    VELMOR_CHECK_ELEMENT(F, v, Size());
    if (A.contains(v)) return 0.0;
    return Self().GainOf(v, A);
  }
  double Loss(int v, const Set& A) const override {
    VELMOR_CHECK_NOT_LARGER(F, A, Size());
    VELMOR_CHECK_ELEMENT(F, v, Size());
    return Self().LossOf(v, A);
  }

  // The factories and AssignContext throw "Invalid ground set size, %d != %d."
  // (A's n, the function's n) unless A is over the function's ground set.
  std::unique_ptr<SetFunction::SetFunctionGrowingContext> MakeGrowingContext(
      const Set& A) const override {
    VELMOR_CHECK_SAME_GROUND_SET(F, A, Size());
    using Context =
        SetFunction::DerivedSetFunctionGrowingContext<F, typename F::GrowingContextExternal>;
    return std::make_unique<Context>(&Self(), A);
  }
  std::unique_ptr<SetFunction::SetFunctionShrinkingContext> MakeShrinkingContext(
      const Set& A) const override {
    VELMOR_CHECK_SAME_GROUND_SET(F, A, Size());
    using Context =
        SetFunction::DerivedSetFunctionShrinkingContext<F, typename F::ShrinkingContextExternal>;
    return std::make_unique<Context>(&Self(), A);
  }
  std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal> MakeGrowingContextExternal(
      const Set& A) const override {
    VELMOR_CHECK_SAME_GROUND_SET(F, A, Size());
    auto context = std::make_unique<typename F::GrowingContextExternal>(&Self());
    context->AssignContext(A);
    return context;
  }
  std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal> MakeShrinkingContextExternal(
      const Set& A) const override {
    VELMOR_CHECK_SAME_GROUND_SET(F, A, Size());
    auto context = std::make_unique<typename F::ShrinkingContextExternal>(&Self());
    context->AssignContext(A);
    return context;
  }
  void AssignContext(SetFunction::SetFunctionGrowingContext& context, const Set& A) const override {
    VELMOR_CHECK_SAME_GROUND_SET(F, A, Size());
    context.AssignContext(A);
  }
  void AssignContext(SetFunction::SetFunctionShrinkingContext& context,
                     const Set& A) const override {
    VELMOR_CHECK_SAME_GROUND_SET(F, A, Size());
    context.AssignContext(A);
  }
  void AssignContext(SetFunction::SetFunctionGrowingContextExternal& context,
                     const Set& A) const override {
    VELMOR_CHECK_SAME_GROUND_SET(F, A, Size());
    context.AssignContext(A);
  }
  void AssignContext(SetFunction::SetFunctionShrinkingContextExternal& context,
                     const Set& A) const override {
    VELMOR_CHECK_SAME_GROUND_SET(F, A, Size());
    context.AssignContext(A);
  }

 protected:
  // ----- Evaluations from F's member state ---------------------------------------

  double Value(const internal::SetExpression& expression) const {
    return Self().ValueOf(MemberState(expression));
  }
  // f(A) from the state of A, then f(A + v) from the same state after v joins.
  std::pair<double, double> UnionAndSecondValues(int v, const Set& A) const {
    auto state = MemberState(internal::SetExpression::Of(A));
    const double second = Self().ValueOf(state);
    if (A.contains(v)) return {second, second};
    Self().Absorb(v, state);
    return {Self().ValueOf(state), second};
  }
  double GainOf(int v, const Set& A) const {
    return Self().GainOver(v, MemberState(internal::SetExpression::Of(A)));
  }
  // The gain of v against A - v; 0.0 when A does not hold v.
  double LossOf(int v, const Set& A) const {
    if (!A.contains(v)) return 0.0;
    return Self().GainOver(v, MemberState(internal::SetExpression::Difference(A, v)));
  }

 private:
  // F's state of the members of `expression`.
  auto MemberState(const internal::SetExpression& expression) const {
    return Self().StateOf([&expression](auto&& visit) { expression.ForEachMember(visit); });
  }
  const F& Self() const { return static_cast<const F&>(*this); }
  int Size() const { return Self().F::GroundSetSize(); }
};

namespace internal {

// What the external contexts of function F share (Self the context class,
// Interface its abstract half): the function, whose copies the context's
// copies share, and copies of the context made by Self's copy constructor.
template <typename Self, typename F, typename Interface>
class ContextExternalSkeleton : public Interface {
 public:
  explicit ContextExternalSkeleton(const F* function) : function_(function) {}

  std::unique_ptr<Interface> clone() const override { return std::make_unique<Self>(Me()); }

 protected:
  int Size() const { return function_->F::GroundSetSize(); }
  const Self& Me() const { return static_cast<const Self&>(*this); }
  Self& Me() { return static_cast<Self&>(*this); }

  const F* function_;
};

// The checked entry points of an external growing context; Self writes the
// unchecked operations DisjointGainOf(v), AddElement(v), optionally
// AddElementTo(A, v) (the same addition given the set A the state stands for)
// and, with kBatchedGains, DisjointGainsOf(elements, count, gains).
template <typename Self, typename F>
class GrowingContextExternalSkeleton
    : public ContextExternalSkeleton<Self, F, SetFunction::SetFunctionGrowingContextExternal> {
  using Base = ContextExternalSkeleton<Self, F, SetFunction::SetFunctionGrowingContextExternal>;

 public:
  using Base::Base;

  // Throws "Invalid element = %d".
  double DisjointGain(int v) const override {
    VELMOR_CHECK_ELEMENT(F, v, this->Size());
    return this->Me().DisjointGainOf(v);
  }
  // With a batched kernel, every element is checked before any gain is
  // computed; otherwise as the single calls.
  void DisjointGains(const int* elements, int count, double* gains) const override {
    if constexpr (Self::kBatchedGains) {
      const int n = this->Size();
      for (int j = 0; j < count; ++j) VELMOR_CHECK_ELEMENT(F, elements[j], n);
      this->Me().DisjointGainsOf(elements, count, gains);
    } else {
      SetFunction::SetFunctionGrowingContextExternal::DisjointGains(elements, count, gains);
    }
  }
  // Throws "Invalid element = %d", changing nothing.
  bool AddNewElementToContext(int v) override {
    VELMOR_CHECK_ELEMENT(F, v, this->Size());
    return this->Me().AddElement(v);
  }
  // Self's AddElementTo(A, v) when it has one, else AddElement(v); the
  // element message names AddNewElementToContext.
  bool AddNewElementToContextWithSet(const Set& A, int v) override {
    if constexpr (requires(Self & self) { self.AddElementTo(A, v); }) {
      if (v < 0 || v >= this->Size()) [[unlikely]] {
        ThrowInvalidArgument(MessageSite{F::SourceFile(), "AddNewElementToContext", __LINE__},
                             "Invalid element = %d%s", v, F::kMessageEnd);
      }
      return this->Me().AddElementTo(A, v);
    } else {
      return GrowingContextExternalSkeleton::AddNewElementToContext(v);
    }
  }

 protected:
  static constexpr bool kBatchedGains = false;
};

// The checked entry points of an external shrinking context; Self writes
// SubsetLossOf(v) and RemoveElement(A, v).
template <typename Self, typename F>
class ShrinkingContextExternalSkeleton
    : public ContextExternalSkeleton<Self, F, SetFunction::SetFunctionShrinkingContextExternal> {
  using Base = ContextExternalSkeleton<Self, F, SetFunction::SetFunctionShrinkingContextExternal>;

 public:
  using Base::Base;

  // Throws "Invalid element = %d".
  double SubsetLoss(int v) const override {
    VELMOR_CHECK_ELEMENT(F, v, this->Size());
    return this->Me().SubsetLossOf(v);
  }
  // Throws "Invalid element = %d", changing nothing.
  void RemoveExistingElementFromContext(const Set& A, int v) override {
    VELMOR_CHECK_ELEMENT(F, v, this->Size());
    this->Me().RemoveElement(A, v);
  }
};

// An owning pointer whose copies own copies of the pointee (made by its
// clone()), for the functions and contexts a wrapper holds.
template <typename T>
class ClonedPointer {
 public:
  ClonedPointer() = default;
  explicit ClonedPointer(std::unique_ptr<T> pointee) : pointee_(std::move(pointee)) {}
  ClonedPointer(const ClonedPointer& other)
      : pointee_(other.pointee_ ? other.pointee_->clone() : nullptr) {}
  ClonedPointer(ClonedPointer&&) noexcept = default;
  ClonedPointer& operator=(const ClonedPointer& other) {
    if (this != &other) pointee_ = other.pointee_ ? other.pointee_->clone() : nullptr;
    return *this;
  }
  ClonedPointer& operator=(ClonedPointer&&) noexcept = default;

  T* operator->() const { return pointee_.get(); }
  T& operator*() const { return *pointee_; }
  explicit operator bool() const { return pointee_ != nullptr; }

 private:
  std::unique_ptr<T> pointee_;
};

}  // namespace internal
}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SETFUNCTIONSKELETON_H_
