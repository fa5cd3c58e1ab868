#ifndef VELMOR_FUNCTIONS_SETFUNCTION_H_
#define VELMOR_FUNCTIONS_SETFUNCTION_H_

// The set-function protocol: a real-valued function f: 2^V -> R over the
// ground set V = {0, ..., n-1}, evaluated on whole sets and incrementally
// through contexts.
//
// A growing context holds a set A and whatever f needs to answer the marginal
// gain f(v | A) = f(A + v) - f(A) quickly and to absorb v into A; a shrinking
// context does the same for the loss f(A) - f(A - v) and the removal of v.
// Each function supplies two halves per direction:
//   - an external context (SetFunctionGrowingContextExternal,
//     SetFunctionShrinkingContextExternal): a pointer to the function and its
//     incremental state for A, without the set itself;
//   - the owning context handed to algorithms, made by the templates
//     DerivedSetFunctionGrowingContext / DerivedSetFunctionShrinkingContext,
//     which hold the function's external context followed by A as an
//     UnorderedHashSet.
// Values, gains and losses are double. A function is read-only once built
// (and normalized): any number of threads may evaluate it and work with their
// own contexts at once. A context belongs to one thread, and the function
// must outlive every context made from it.
//
// Argument errors throw std::invalid_argument with a location-prefixed
// message; checks come before any change, so a failed call changes nothing.

#include <memory>
#include <string>
#include <utility>

#include "sets/Set.h"
#include "sets/UnorderedHashSet.h"
#include "utils/error_messages.h"

namespace spdlog {
class logger;
}

namespace velmor {

// ---------------------------------------------------------------------------
// Class-tree helpers.
//
//   class Kind : public clone_inherit<abstract_method<Kind>, virtual_inherit_from<SetFunction>> {};
//   class Concrete : public clone_inherit<Concrete, Kind> {};
//
// clone_inherit<Derived, Bases...> derives from Bases... and supplies
// `clone()`, which returns a new heap copy as std::unique_ptr<Derived>; the
// copy is made by the private virtual clone_impl(), so cloning through any
// base gives a copy of the most derived class. With abstract_method<Derived>
// as first argument the class stays abstract (clone_impl is pure). The
// constructors of the bases are inherited. Every concrete class, including a
// class derived from a concrete function, must derive through clone_inherit:
// otherwise its clone is a copy of its base (a slice).
// virtual_inherit_from<B> derives from B through a virtual base, so that a
// class of two kinds (submodular and supermodular) holds one SetFunction.
// ---------------------------------------------------------------------------

template <typename T>
class abstract_method {};

template <typename T>
class virtual_inherit_from : virtual public T {
  using T::T;
};

template <typename Derived, typename... Bases>
class clone_inherit : public Bases... {
 public:
  using Bases::Bases...;
  std::unique_ptr<Derived> clone() const {
    return std::unique_ptr<Derived>(static_cast<Derived*>(this->clone_impl()));
  }

 private:
  clone_inherit* clone_impl() const override {
    return new Derived(static_cast<const Derived&>(*this));
  }
};

template <typename Derived, typename... Bases>
class clone_inherit<abstract_method<Derived>, Bases...> : public Bases... {
 public:
  using Bases::Bases...;
  std::unique_ptr<Derived> clone() const {
    return std::unique_ptr<Derived>(static_cast<Derived*>(this->clone_impl()));
  }

 private:
  virtual clone_inherit* clone_impl() const = 0;
};

template <typename Derived>
class clone_inherit<abstract_method<Derived>> {
 public:
  virtual ~clone_inherit() = default;
  std::unique_ptr<Derived> clone() const {
    return std::unique_ptr<Derived>(static_cast<Derived*>(this->clone_impl()));
  }

 private:
  virtual clone_inherit* clone_impl() const = 0;
};

// ---------------------------------------------------------------------------
// SetFunction
// ---------------------------------------------------------------------------

class SetFunction : public clone_inherit<abstract_method<SetFunction>> {
 public:
  // ----- Contexts -------------------------------------------------------

  // Common base of every context: the value f(A) of the set the context
  // stands for, read from the cached state without a new evaluation.
  class SetFunctionContext {
   public:
    virtual ~SetFunctionContext() = default;
    virtual double CurrentValue() const = 0;
  };

  // Function-specific growing state for a set A, without A itself.
  // Implementations are copyable; the owning template constructs them from a
  // `const F*` in the state of the empty set.
  class SetFunctionGrowingContextExternal : public SetFunctionContext {
   public:
    // Rebuilds the state for A. Default: ResetToEmptySet(), then
    // AddNewElementToContext(v) for each v of A in A's iteration order.
    // The caller has checked A's ground-set size.
    virtual void AssignContext(const Set& A);
    virtual std::unique_ptr<SetFunctionGrowingContextExternal> clone() const = 0;
    // f(v | A) for v not in A (the caller's promise); changes nothing.
    // Throws "Invalid element = %d." for v outside [0, n).
    virtual double DisjointGain(int v) const = 0;
    // gains[j] = DisjointGain(elements[j]) for j in [0, count), each exactly
    // as the single call would give it; functions with a faster batched
    // kernel override it. Throws as DisjointGain at the first invalid
    // element (gains of earlier elements may then have been written).
    virtual void DisjointGains(const int* elements, int count, double* gains) const;
    // The state becomes that of A + v; returns whether it changed.
    // Throws "Invalid element = %d." for v outside [0, n), changing nothing.
    virtual bool AddNewElementToContext(int v) = 0;
    // The same, where `A` is the set the state stands for (v is not inserted
    // into it). A function whose update depends on A's members overrides it;
    // the default is AddNewElementToContext(v).
    virtual bool AddNewElementToContextWithSet(const Set& /*A*/, int v) {
      return AddNewElementToContext(v);
    }
    // The state of the empty set.
    virtual void ResetToEmptySet() = 0;
  };

  // Function-specific shrinking state for a set A, without A itself. The
  // operations that need the members of A are handed A by the caller.
  class SetFunctionShrinkingContextExternal : public SetFunctionContext {
   public:
    // Rebuilds the state for A (ground-set size checked by the caller).
    virtual void AssignContext(const Set& A) = 0;
    virtual std::unique_ptr<SetFunctionShrinkingContextExternal> clone() const = 0;
    // f(A) - f(A - v) for v in A (the caller's promise); changes nothing.
    // Throws "Invalid element = %d." for v outside [0, n).
    virtual double SubsetLoss(int v) const = 0;
    // The state becomes that of A - v, where `A` is the set the state stands
    // for (still holding v). Throws "Invalid element = %d." for v outside [0, n).
    virtual void RemoveExistingElementFromContext(const Set& A, int v) = 0;
  };

  // Growing context that owns its set A: the interface algorithms work with.
  //
  // Greedy step: for each candidate v call DisjointGain(v); for the chosen v
  // call AddNewElementToContext(v, true); repeat. AssignContext re-uses the
  // context for another start set.
  class SetFunctionGrowingContext : public SetFunctionContext {
   public:
    // 1. Rebuilds the context for A: checks A's ground-set size, resets the
    //    state to the empty set, then adds A's elements in A's iteration order
    //    (or rebuilds the state for A directly, to the same effect).
    virtual void AssignContext(const Set& A) = 0;
    // 2.
    ~SetFunctionGrowingContext() override = default;
    // 3. A new heap copy (state and set).
    virtual std::unique_ptr<SetFunctionGrowingContext> clone() const = 0;
    // 4. f(v | A) for v not in A (the caller's promise). Changes nothing.
    virtual double DisjointGain(int v) const = 0;
    // Batched form of 4: gains[j] = DisjointGain(elements[j]) for j in
    // [0, count), bit for bit. Changes nothing.
    virtual void DisjointGains(const int* elements, int count, double* gains) const;
    // 5. The state becomes that of A + v; with also_insert, v is also inserted
    //    into the context's set (otherwise the set stays A). Returns whether
    //    the state changed.
    virtual bool AddNewElementToContext(int v, bool also_insert) = 0;
    // 6. f(B | A) for B disjoint from A: the sum of DisjointGain over B's
    //    elements in B's iteration order, each added to a scratch copy of the
    //    context before the next. Changes nothing.
    virtual double DisjointSetGain(const Set& B) const;
    // 7. AddNewElementToContext(b, also_insert) for each b of B in B's order;
    //    returns whether any call changed the state.
    virtual bool AddNewElementsToContext(const Set& B, bool also_insert);
    // 8. Read access to the context's set A (copy it for a value).
    virtual const UnorderedHashSet& CurrentSet() const = 0;
    // |A|, the size of the context's set.
    virtual int NumberOfElements() const = 0;
  };

  // Shrinking context that owns its set A.
  class SetFunctionShrinkingContext : public SetFunctionContext {
   public:
    // 1. Rebuilds the context for A (ground-set size checked).
    virtual void AssignContext(const Set& A) = 0;
    // 2.
    ~SetFunctionShrinkingContext() override = default;
    // 3.
    virtual std::unique_ptr<SetFunctionShrinkingContext> clone() const = 0;
    // 4. f(A) - f(A - v) for v in A (the caller's promise). Changes nothing.
    virtual double SubsetLoss(int v) const = 0;
    // 5. The state becomes that of A - v; with also_remove, v is also removed
    //    from the context's set.
    virtual void RemoveExistingElementFromContext(int v, bool also_remove) = 0;
    // 6. f(A) - f(A \ B) for B a subset of A: the sum of SubsetLoss over B's
    //    elements in B's iteration order, each removed from a scratch copy of
    //    the context before the next. Changes nothing.
    virtual double SubsetSetLoss(const Set& B) const;
    // 7. RemoveExistingElementFromContext(b, also_remove) for each b of B.
    virtual void RemoveExistingElementsFromContext(const Set& B, bool also_remove);
    // 8.
    virtual const UnorderedHashSet& CurrentSet() const = 0;
    virtual int NumberOfElements() const = 0;
  };

  // What the owning contexts (Derived) share: F's external context `External`, then the
  // context's set A of type `SetType` (UnorderedHashSet). Requirements on
  // External: copyable, constructible from `const F*` in the state of the
  // empty set. F provides GroundSetSize().
  template <typename Derived, typename Interface, typename F, typename External, typename SetType>
  class DerivedSetFunctionContext : public Interface {
   public:
    // A context positioned at A. Throws as AssignContext.
    DerivedSetFunctionContext(const F* function, const Set& A)
        : external_(function), set_(function->GroundSetSize()) {
      AssignContext(A);
    }

    // Throws "Invalid element, mismatched ground set size, %d != %d." (A's n,
    // the function's n) when the sizes differ.
    void AssignContext(const Set& A) override {
      if (A.GroundSetSize() != set_.GroundSetSize()) {
        VELMOR_THROW(std::invalid_argument,
                     "Invalid element, mismatched ground set size, %d != %d.", A.GroundSetSize(),
                     set_.GroundSetSize());
      }
      external_.AssignContext(A);
      set_.Assign(A);
    }
    // A new heap copy (state and set).
    std::unique_ptr<Interface> clone() const override {
      return std::make_unique<Derived>(static_cast<const Derived&>(*this));
    }
    const UnorderedHashSet& CurrentSet() const override { return set_; }
    int NumberOfElements() const override { return set_.size(); }
    double CurrentValue() const override { return external_.CurrentValue(); }

    // The function-specific half, for code that knows F.
    const External& external() const { return external_; }

   protected:
    External external_;
    SetType set_;
  };

  // Owning growing context; External derives from
  // SetFunctionGrowingContextExternal.
  template <typename F, typename External, typename SetType = UnorderedHashSet>
  class DerivedSetFunctionGrowingContext final
      : public DerivedSetFunctionContext<DerivedSetFunctionGrowingContext<F, External, SetType>,
                                         SetFunctionGrowingContext, F, External, SetType> {
   public:
    using DerivedSetFunctionGrowingContext::DerivedSetFunctionContext::DerivedSetFunctionContext;

    bool AddNewElementToContext(int v, bool also_insert) override {
      const bool changed = this->external_.AddNewElementToContextWithSet(this->set_, v);
      if (also_insert) this->set_.insert(v);
      return changed;
    }
    double DisjointGain(int v) const override { return this->external_.DisjointGain(v); }
    void DisjointGains(const int* elements, int count, double* gains) const override {
      this->external_.DisjointGains(elements, count, gains);
    }
  };

  // Owning shrinking context; External derives from
  // SetFunctionShrinkingContextExternal.
  template <typename F, typename External, typename SetType = UnorderedHashSet>
  class DerivedSetFunctionShrinkingContext final
      : public DerivedSetFunctionContext<DerivedSetFunctionShrinkingContext<F, External, SetType>,
                                         SetFunctionShrinkingContext, F, External, SetType> {
   public:
    using DerivedSetFunctionShrinkingContext::DerivedSetFunctionContext::DerivedSetFunctionContext;

    double SubsetLoss(int v) const override { return this->external_.SubsetLoss(v); }
    void RemoveExistingElementFromContext(int v, bool also_remove) override {
      this->external_.RemoveExistingElementFromContext(this->set_, v);
      if (also_remove) this->set_.remove(v);
    }
  };

  // ----- Operations, in declaration order -------------------------------
  //
  // Whole-set operations throw "Too large ground set size = %d." for a set
  // whose ground-set size exceeds n (a smaller one is accepted) and
  // "Invalid element = %d." for an element outside [0, n).

  // 1.
  ~SetFunction() override = default;
  // 2. clone(): through clone_inherit.
  // 3. f({v}).
  virtual double Evaluate(int v) const = 0;
  // 4. f(A).
  virtual double Evaluate(const Set& A) const = 0;
  // 5. f(A + v).
  virtual double EvaluateUnion(int v, const Set& A) const = 0;
  // 6. f(A union B).
  virtual double EvaluateUnion(const Set& A, const Set& B) const = 0;
  // 7. f(V). Default: Evaluate of the full range [0, n).
  virtual double EvaluateGroundSet() const;
  // 8. (f(A + v), f(A)). Default: the two evaluations.
  virtual std::pair<double, double> EvaluateUnionAndSecondArg(int v, const Set& A) const;
  // 9. f(A - v).
  virtual double EvaluateAfterSubtraction(const Set& A, int v) const = 0;
  // 10. f(A \ B).
  virtual double EvaluateAfterSubtraction(const Set& A, const Set& B) const = 0;
  // 11. f(A + v) - f(A); 0.0 when A contains v.
  virtual double Gain(int v, const Set& A) const;
  // 12. f(A) - f(A - v); 0.0 when A does not contain v.
  virtual double Loss(int v, const Set& A) const;
  // 13. Loss(v, A) when A contains v, else Gain(v, A).
  virtual double GainOrLoss(int v, const Set& A) const;
  // 14. f(A union B) - f(B): EvaluateUnion(A, B) - Evaluate(B).
  virtual double SetGain(const Set& A, const Set& B) const;
  // 15. The loss of removing B from A, f(A) - f(A \ B):
  //     Evaluate(A) - EvaluateAfterSubtraction(A, B).
  virtual double SetLoss(const Set& B, const Set& A) const;
  // 16. n.
  virtual int GroundSetSize() const = 0;
  // 17. Number of landmarks (concepts) the function covers; 0 for a function
  //     without landmarks.
  virtual int NumberOfLandmarks() const = 0;
  // 18-19. Shape of the matrix the function holds; 0 x 0 for none.
  virtual long MatrixRows() const = 0;
  virtual long MatrixColumns() const = 0;
  // 20. Number of stored matrix entries (rows x columns when dense, the
  //     stored entries when sparse); 0 for none.
  virtual long MatrixStoredEntries() const = 0;
  // 21. One-line description; default "set function".
  virtual std::string Description() const;
  // 22. Number of components of a combination; default 0.
  virtual int NumberOfComponents() const;
  // 23. Logs Description() with "{}\n" at info level. Throws
  //     "Invalid nullptr logger object." for a null logger.
  virtual void LogDescription(spdlog::logger* logger) const;
  // 24. Logs each component's name (default: no components, nothing logged).
  //     Throws "Invalid nullptr logger object." for a null logger.
  virtual void LogComponentNames(spdlog::logger* logger) const;
  // 25-28. New contexts positioned at A. A's ground-set size must equal n
  //        ("Invalid ground set size, %d != %d.").
  virtual std::unique_ptr<SetFunctionGrowingContext> MakeGrowingContext(const Set& A) const = 0;
  virtual std::unique_ptr<SetFunctionShrinkingContext> MakeShrinkingContext(const Set& A) const = 0;
  virtual std::unique_ptr<SetFunctionGrowingContextExternal> MakeGrowingContextExternal(
      const Set& A) const = 0;
  virtual std::unique_ptr<SetFunctionShrinkingContextExternal> MakeShrinkingContextExternal(
      const Set& A) const = 0;
  // 29-32. Reset a context made by this function to A. Throw
  //        "Invalid ground set size, %d != %d." (A's n, the function's n)
  //        when the sizes differ, changing nothing.
  virtual void AssignContext(SetFunctionGrowingContext& context, const Set& A) const = 0;
  virtual void AssignContext(SetFunctionShrinkingContext& context, const Set& A) const = 0;
  virtual void AssignContext(SetFunctionGrowingContextExternal& context, const Set& A) const = 0;
  virtual void AssignContext(SetFunctionShrinkingContextExternal& context, const Set& A) const = 0;

  // Whether f(A) <= f(B) for all A subset of B is known to hold. Default false
  // (not known); functions that are monotone for every input say true.
  virtual bool IsMonotoneNondecreasing() const;

  // Whether the gains a growing context computes can only stay or fall as its
  // set grows, bit for bit: after any further AddNewElementToContext calls,
  // DisjointGain(v) is <= what it was (NaN aside). Submodularity promises this
  // for exact gains only; a function says true when its rounded gains keep it
  // too, so that a stale gain is an upper bound of the fresh one and a greedy
  // may skip candidates whose stale gain cannot win. Default false.
  virtual bool ComputedGainsNeverRise() const;

 protected:
  SetFunction() = default;
  SetFunction(const SetFunction&) = default;
  SetFunction& operator=(const SetFunction&) = default;
};

// The submodular kind: f(v | A) >= f(v | B) for A subset of B.
class SubmodularFunction
    : public clone_inherit<abstract_method<SubmodularFunction>, virtual_inherit_from<SetFunction>> {
};

// The supermodular kind: f(v | A) <= f(v | B) for A subset of B.
class SupermodularFunction : public clone_inherit<abstract_method<SupermodularFunction>,
                                                  virtual_inherit_from<SetFunction>> {};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SETFUNCTION_H_
