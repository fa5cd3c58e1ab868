#ifndef VELMOR_SUMMARIZATION_SUMMARYPLAN_H_
#define VELMOR_SUMMARIZATION_SUMMARYPLAN_H_

// Everything one summarization run needs, as plain values: the function
// groups mixed into the objective, the set modifications, the constraint, the
// algorithm, the random evaluations and the reports. Any front end fills one
// (quillo from its options, a binding from its arguments); SummaryObjective
// builds the objective and the constraint from it and RunSummary runs it.
//
// A plan holds data, not names of files or texts of options: matrices are
// matrices (owned, or element-major storage held elsewhere, such as a mapped
// .npy file or a caller's array), sets are sets over the ground set
// V = {0, ..., n-1}. n is the first group's number of items; every group must
// have the same.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "algorithms/GreedyAlgorithmChoice.h"
#include "constraints/DownClosedSetConstraint.h"
#include "io/MatrixIOCommon.h"
#include "sets/UnorderedHashSet.h"

namespace velmor {

// A dense matrix of a SummaryPlan, whose rows are the items: n x k, row v
// holding item v's k values (its similarities to k landmarks, or its
// features).
template <typename T>
struct DenseMatrixInput {
  // Owned, n x k. Used when `element_major` is null.
  matrixio::DenseMatrix<T> rows;
  // Held elsewhere and shared: item v's k values at element_major.get() +
  // v * k, for `items` items of `values_per_item` values. Read in place by
  // the functions that can (facility location), copied by the others.
  std::shared_ptr<T> element_major;
  std::int64_t items = 0;
  std::int64_t values_per_item = 0;
  // With `element_major`, optionally: its values were checked free of NaN and
  // infinity, and these are the largest value of each of the k columns (over
  // the items), found in the same pass (MappedNumpyMatrix gives them). Facility
  // location then normalizes without reading the rows again.
  std::vector<T> checked_column_maxima;

  std::int64_t Items() const { return element_major ? items : rows.rows(); }
  std::int64_t ValuesPerItem() const { return element_major ? values_per_item : rows.cols(); }
};

struct SummaryPlan {
  template <typename T>
  using DenseInput = DenseMatrixInput<T>;
  // The element type is the data's own: single or double precision.
  using DenseMatrices = std::variant<DenseInput<float>, DenseInput<double>>;
  // Rows are the items.
  using SparseMatrices =
      std::variant<matrixio::SparseMatrix<float>, matrixio::SparseMatrix<double>>;

  enum class Kind {
    kFacilityLocation,        // dense; soft when softness > 0
    kSparseFacilityLocation,  // sparse; soft when softness > 0
    kDispersion,              // dense sum-sum dispersion
    kSparseDispersion,        // sparse sum-sum dispersion
    kCentrality,              // modular over a facility-location matrix's centrality vector
  };

  // One component of the objective's mixture.
  struct FunctionGroup {
    FunctionGroup() = default;
    FunctionGroup(Kind kind, std::string tag, double responsibility, bool normalize = true,
                  double softness = 0.0)
        : kind(kind),
          tag(std::move(tag)),
          responsibility(responsibility),
          normalize(normalize),
          softness(softness) {}

    Kind kind = Kind::kFacilityLocation;
    // Names the group in the log and the reports: "FL", "FL2", "SPFL", "SSD",
    // "SSD2", "SPSSD", "SPSSD2"; a centrality group takes the tag of the
    // facility-location group whose matrix it comes from.
    std::string tag;
    // The component's weight in the mixture, >= 0.
    double responsibility = 1.0;
    // Scale the function so that f(V) = 1 (not for centrality).
    bool normalize = true;
    // Facility location: > 0 asks for the soft form with this softness.
    double softness = 0.0;
    DenseMatrices dense;             // kFacilityLocation, kDispersion
    SparseMatrices sparse;           // kSparseFacilityLocation, kSparseDispersion
    std::vector<double> centrality;  // kCentrality: one value per item
    // Facility-location kinds: with an attraction set A (and a neglect set N,
    // empty when absent) the function f becomes its conditional mutual
    // information g(X) = I_f(X; A | N); with a contraction set C it then
    // becomes g'(X) = g(X u C) - g(C).
    std::optional<UnorderedHashSet> attraction;
    std::optional<UnorderedHashSet> neglect;
    std::optional<UnorderedHashSet> contraction;

    // n: the matrix's rows, or the centrality vector's length.
    std::int64_t Items() const;
  };

  // Applied to the candidates in this order: restriction, deletion,
  // contraction.
  struct SetModifications {
    // The candidates are these elements; all of V when absent.
    std::optional<UnorderedHashSet> restriction;
    // Removed from the candidates.
    std::optional<UnorderedHashSet> deletion;
    // Forced into the solution and counted in its size: the greedy starts
    // from it. Inclusion elements stay candidates.
    std::optional<UnorderedHashSet> inclusion;
    // Removed from the candidates; the objective becomes f(A u C) - f(C), so
    // C is taken as already chosen and is not counted in the summary.
    std::optional<UnorderedHashSet> contraction;
  };

  struct Algorithm {
    GreedyAlgorithmChoice choice;
    // Seeds the chosen algorithm's random draws (stochastic samples, the
    // multi-threaded scheme's partition).
    int seed = 0;
    // > 0: partial enumeration over starting sets of this size.
    int partial_enumeration = 0;
    // Partial enumeration logs its progress every this many starting sets.
    int partial_enumeration_log_period = 100;
  };

  // Random subsets, evaluated for comparison with the summary.
  struct RandomEvaluations {
    int count = 0;  // 0: none
    std::uint32_t seed = 0;
    // Also log the sets that reached the smallest and the largest value.
    bool log_sets = false;
  };

  // Which report lines RunSummary logs.
  struct Reports {
    // Vectors as "name = np.array([a, b])" rather than "a b ".
    bool numpy_vectors = true;
    bool value = true;
    bool solution = false;
    bool order = false;
    bool gains = false;
    bool cumulative_gains = false;
    bool conditional_curvature = false;
    // Curvature summary and the modular upper bound.
    bool detail = false;
    // 1: each component's share of the value; > 1: also its gain at each
    // step of the order.
    unsigned balance = 0;
    // Compute the conditional curvature into the result even when no report
    // shows it.
    bool keep_conditional_curvature = false;
  };

  std::vector<FunctionGroup> groups;
  SetModifications sets;
  // The constraint; when null, a cardinality constraint of summary_size.
  std::shared_ptr<const DownClosedSetConstraint> constraint;
  // k: the summary's size, inclusion counted.
  int summary_size = 0;
  Algorithm algorithm;
  // Threads for the work of the run that is split between threads (building
  // matrices from features, the full passes over the candidates): >= 1, or 0
  // for the machine's cores. Results do not depend on it.
  int threads = 0;
  RandomEvaluations random_evaluations;
  Reports reports;
};

}  // namespace velmor

#endif  // VELMOR_SUMMARIZATION_SUMMARYPLAN_H_
