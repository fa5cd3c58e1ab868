#ifndef VELMOR_SUMMARIZATION_SUMMARYOBJECTIVE_H_
#define VELMOR_SUMMARIZATION_SUMMARYOBJECTIVE_H_

// The objective, the constraint and the candidate sets that a SummaryPlan
// describes, built once and owned for the whole run: the mixture of the
// groups' functions (each wrapped as its group asks), its contraction when the
// plan has one, the constraint and the sets the algorithms start from.
// Everything is read-only once built, so several runs may share it.

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "constraints/DownClosedSetConstraint.h"
#include "functions/MixtureSetFunction.h"
#include "sets/UnorderedHashSet.h"
#include "summarization/SummaryPlan.h"

namespace spdlog {
class logger;
}

namespace velmor {

class SummaryObjective {
 public:
  // A group whose function could not be built from its matrix (for example
  // an all-zero matrix that cannot be normalized). what() is a located
  // message, Text() the same text without the location: "Problems opening an
  // FL function." for the facility-location kinds (with the group's tag),
  // "Problems opening SumSumDisp function." for dense dispersion and
  // "Problems opening SPSSD function." (the tag) for sparse dispersion. The
  // cause is nested.
  class GroupError : public std::runtime_error {
   public:
    GroupError(const std::string& located_message, std::string text)
        : std::runtime_error(located_message), text_(std::move(text)) {}
    const std::string& Text() const { return text_; }

   private:
    std::string text_;
  };

  // Builds, for each group in order, its function (logging "Creating a ...
  // with a {}x{} matrix." and "Mixing in ..." on `log` at info level), wraps
  // it for its attraction, neglect and contraction sets, and mixes the
  // functions by responsibility; then the candidates (restriction, deletion,
  // contraction), the contraction of the mixture and the constraint.
  //
  // The groups' matrices are moved out of the plan (each is released as soon
  // as its function holds what it needs), so the plan's groups are left
  // without data; the rest of the plan is only read.
  //
  // Throws GroupError as above, and the library's std::invalid_argument
  // errors for inconsistent input: groups or sets over different ground
  // sets, a negative or non-finite responsibility, no group.
  SummaryObjective(SummaryPlan& plan, spdlog::logger& log);

  SummaryObjective(SummaryObjective&&) noexcept = default;
  SummaryObjective& operator=(SummaryObjective&&) noexcept = default;

  // What the algorithms maximize: the mixture, or its contraction.
  const SubmodularFunction& Function() const { return *function_; }
  // The mixture of the groups' functions (inside Function()).
  const MixtureSetFunction& Mixture() const { return *mixture_; }
  // "FL function", "FL centrality function", "Sparse FL function", "SSD
  // function", ...: component i's name in the reports.
  const std::string& ComponentName(int i) const { return names_[static_cast<std::size_t>(i)]; }
  // The plan's contraction set, or null.
  const UnorderedHashSet* Contraction() const { return contraction_.get(); }

  int GroundSetSize() const { return function_->GroundSetSize(); }
  // The relative ground set R: the elements the algorithms may choose.
  const UnorderedHashSet& Candidates() const { return candidates_; }
  // The elements every solution starts with (empty when the plan has none).
  const UnorderedHashSet& Inclusion() const { return inclusion_; }
  const DownClosedSetConstraint& Constraint() const { return *constraint_; }
  // "down to summary of size k=5", "using a intersection of matroids
  // constraint" or "using unknown constraint.".
  std::string ConstraintDescription() const;
  // The plan's summary size k.
  int SummarySize() const { return summary_size_; }

 private:
  std::unique_ptr<SubmodularFunction> function_;
  const MixtureSetFunction* mixture_ = nullptr;
  std::vector<std::string> names_;
  std::unique_ptr<UnorderedHashSet> contraction_;
  UnorderedHashSet candidates_;
  UnorderedHashSet inclusion_;
  std::shared_ptr<const DownClosedSetConstraint> constraint_;
  int summary_size_ = 0;
};

}  // namespace velmor

#endif  // VELMOR_SUMMARIZATION_SUMMARYOBJECTIVE_H_
