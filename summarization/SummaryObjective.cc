#include "summarization/SummaryObjective.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <exception>
#include <utility>

#include "constraints/CardinalitySetConstraint.h"
#include "constraints/IntersectionOfMatroidsSetConstraint.h"
#include "functions/CombinatorialConditionalMutualInformationWrapperSetFunction.h"
#include "functions/ContractionWrapperSetFunction.h"
#include "functions/FacilityLocationFunction.h"
#include "functions/ModularFunction.h"
#include "functions/SoftFacilityLocationFunction.h"
#include "functions/SoftSparseFacilityLocationFunction.h"
#include "functions/SparseFacilityLocationFunction.h"
#include "functions/SparseSumSumDispersionFunction.h"
#include "functions/SumSumDispersionFunction.h"
#include "utils/error_messages.h"

namespace velmor {
namespace {

using Group = SummaryPlan::FunctionGroup;
using Kind = SummaryPlan::Kind;

// Runs `build`; any failure leaves as a GroupError with `text`, the failure
// nested.
template <typename Build>
auto BuildOrThrowGroupError(const std::string& text, Build build) {
  try {
    return build();
  } catch (...) {
    std::throw_with_nested(
        SummaryObjective::GroupError(VELMOR_SOURCE_MESSAGE("%s", text.c_str()), text));
  }
}

// Element-major storage held elsewhere, seen as the k x n matrix whose
// column v is item v.
template <typename T>
Eigen::Map<const matrixio::DenseMatrix<T>> ElementMajorView(
    const SummaryPlan::DenseInput<T>& input) {
  return {input.element_major.get(), input.values_per_item, input.items};
}

template <typename T>
std::unique_ptr<SubmodularFunction> MakeFacilityLocation(SummaryPlan::DenseInput<T>& input,
                                                         const Group& g, int threads,
                                                         spdlog::logger& log) {
  const std::int64_t n = input.Items(), k = input.ValuesPerItem();
  auto f = BuildOrThrowGroupError(
      fmt::format("Problems opening an {} function.", g.tag),
      [&]() -> std::unique_ptr<SubmodularFunction> {
        if (g.softness > 0) {
          using Soft = SoftFacilityLocationFunction<T>;
          log.info("Creating a Soft Facility Location Function with a {}x{} matrix.", n, k);
          auto soft = input.element_major
                          ? std::make_unique<Soft>(typename Soft::ElementMajor{},
                                                   std::move(input.element_major), n, k, g.softness)
                          : std::make_unique<Soft>(input.rows, g.softness);
          soft->ComputeNormalizationConstant(!g.normalize);
          return soft;
        }
        using Hard = FacilityLocationFunction<T>;
        log.info("Creating a Facility Location Function with a {}x{} matrix.", n, k);
        const bool shared = static_cast<bool>(input.element_major);
        auto hard = shared ? std::make_unique<Hard>(typename Hard::ElementMajor{},
                                                    std::move(input.element_major), n, k)
                           : std::make_unique<Hard>(input.rows);
        if (shared && !input.checked_column_maxima.empty()) {
          hard->ComputeNormalizationConstant(!g.normalize, input.checked_column_maxima);
        } else {
          hard->ComputeNormalizationConstant(!g.normalize, threads);
        }
        return hard;
      });
  input.rows.resize(0, 0);
  return f;
}

template <typename T>
std::unique_ptr<SubmodularFunction> MakeSparseFacilityLocation(matrixio::SparseMatrix<T>& matrix,
                                                               const Group& g,
                                                               spdlog::logger& log) {
  log.info("{}Creating a sparse FL function with a {}x{} matrix.\n", "", matrix.rows(),
           matrix.cols());
  typename SparseFacilityLocationFunction<T>::SparseMatrix rows_major = matrix;
  matrix.resize(0, 0);
  matrix.data().squeeze();
  return BuildOrThrowGroupError(fmt::format("Problems opening an {} function.", g.tag),
                                [&]() -> std::unique_ptr<SubmodularFunction> {
                                  if (g.softness > 0) {
                                    return std::make_unique<SoftSparseFacilityLocationFunction<T>>(
                                        std::move(rows_major), g.softness, !g.normalize);
                                  }
                                  return std::make_unique<SparseFacilityLocationFunction<T>>(
                                      std::move(rows_major), !g.normalize);
                                });
}

template <typename T>
std::unique_ptr<SetFunction> MakeDispersion(SummaryPlan::DenseInput<T>& input, const Group& g,
                                            spdlog::logger& log) {
  log.info("{}Creating a SumSumDisp function with a {}x{} matrix.\n", "", input.Items(),
           input.ValuesPerItem());
  auto f = BuildOrThrowGroupError(
      "Problems opening SumSumDisp function.", [&]() -> std::unique_ptr<SetFunction> {
        auto dispersion = input.element_major
                              ? std::make_unique<SumSumDispersionFunction<T>>(
                                    matrixio::DenseMatrix<T>(ElementMajorView(input).transpose()))
                              : std::make_unique<SumSumDispersionFunction<T>>(input.rows);
        dispersion->ComputeNormalizationConstant(!g.normalize);
        return dispersion;
      });
  input.rows.resize(0, 0);
  input.element_major.reset();
  return f;
}

template <typename T>
std::unique_ptr<SetFunction> MakeSparseDispersion(matrixio::SparseMatrix<T>& matrix, const Group& g,
                                                  spdlog::logger& log) {
  log.info(fmt::runtime("{}Creating a " + g.tag + " function with a {}x{} matrix.\n"), "",
           matrix.rows(), matrix.cols());
  return BuildOrThrowGroupError(
      fmt::format("Problems opening {} function.", g.tag), [&]() -> std::unique_ptr<SetFunction> {
        typename SparseSumSumDispersionFunction<T>::SparseMatrix rows_major = matrix;
        matrix.resize(0, 0);
        matrix.data().squeeze();
        auto dispersion =
            std::make_unique<SparseSumSumDispersionFunction<T>>(std::move(rows_major));
        dispersion->ComputeNormalizationConstant(!g.normalize);
        return dispersion;
      });
}

// Wraps `f` in the CMI wrapper (attraction given) and then the contraction
// wrapper (contraction given), each taking `f` over.
std::unique_ptr<SubmodularFunction> WrapForSets(std::unique_ptr<SubmodularFunction> f,
                                                const Group& g) {
  if (g.attraction) {
    const UnorderedHashSet neglect = g.neglect ? *g.neglect : UnorderedHashSet(f->GroundSetSize());
    f = std::make_unique<
        CombinatorialConditionalMutualInformationWrapperSetFunction<SubmodularFunction>>(
        std::move(f), *g.attraction, neglect);
  }
  if (g.contraction) {
    f = std::make_unique<ContractionWrapperSetFunction<SubmodularFunction>>(std::move(f),
                                                                            *g.contraction);
  }
  return f;
}

// The mixture's components, weights and names, in the plan's order.
struct Components {
  std::vector<std::unique_ptr<SetFunction>> functions;
  std::vector<double> weights;
  std::vector<std::string> names;

  void Add(std::unique_ptr<SetFunction> f, const Group& g, std::string name) {
    functions.push_back(std::move(f));
    weights.push_back(g.responsibility);
    names.push_back(std::move(name));
  }
};

void AddGroup(Group& g, Components& components, int threads, spdlog::logger& log) {
  switch (g.kind) {
    case Kind::kFacilityLocation: {
      auto f = std::visit([&](auto& input) { return MakeFacilityLocation(input, g, threads, log); },
                          g.dense);
      f = WrapForSets(std::move(f), g);
      const std::string name = g.tag + " function";
      log.info("Mixing in {}, relative responsibility {:g}.", name, g.responsibility);
      components.Add(std::move(f), g, name);
      break;
    }
    case Kind::kSparseFacilityLocation: {
      auto f = std::visit([&](auto& matrix) { return MakeSparseFacilityLocation(matrix, g, log); },
                          g.sparse);
      f = WrapForSets(std::move(f), g);
      log.info("Mixing in {}, relative responsibility {:g}.", "Sparse FL function",
               g.responsibility);
      components.Add(std::move(f), g, "Sparse FL function");
      break;
    }
    case Kind::kDispersion: {
      const std::int64_t rows = g.Items();
      const std::int64_t cols =
          std::visit([](auto& input) { return input.ValuesPerItem(); }, g.dense);
      auto f = std::visit([&](auto& input) { return MakeDispersion(input, g, log); }, g.dense);
      log.info(fmt::runtime("Mixing in a dense {}x{} matrix " + g.tag +
                            " function, relative responsibility {:g}"),
               rows, cols, g.responsibility);
      components.Add(std::move(f), g, g.tag + " function");
      break;
    }
    case Kind::kSparseDispersion: {
      const std::int64_t rows = g.Items();
      const std::int64_t cols =
          std::visit([](auto& matrix) -> std::int64_t { return matrix.cols(); }, g.sparse);
      auto f =
          std::visit([&](auto& matrix) { return MakeSparseDispersion(matrix, g, log); }, g.sparse);
      log.info("Mixing in a sparse {}x{} matrix SM function, relative responsibility {:g}.", rows,
               cols, g.responsibility);
      components.Add(std::move(f), g, g.tag + " function");
      break;
    }
    case Kind::kCentrality:
      log.info(fmt::runtime("Mixing in length {} " + g.tag +
                            "-matrix based centrality function, relative responsibility {:g}."),
               g.centrality.size(), g.responsibility);
      components.Add(std::make_unique<ModularFunction<double>>(std::move(g.centrality)), g,
                     g.tag + " centrality function");
      break;
  }
}

void CheckGroundSet(const std::optional<UnorderedHashSet>& set, int n) {
  if (set && set->GroundSetSize() != n) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", set->GroundSetSize(),
                 n);
  }
}

}  // namespace

SummaryObjective::SummaryObjective(SummaryPlan& plan, spdlog::logger& log)
    : summary_size_(plan.summary_size) {
  Components components;
  for (Group& g : plan.groups) AddGroup(g, components, plan.threads, log);
  auto mixture =
      std::make_unique<MixtureSetFunction>(std::move(components.functions), components.weights);
  mixture_ = mixture.get();
  function_ = std::move(mixture);
  names_ = std::move(components.names);

  const int n = function_->GroundSetSize();
  const SummaryPlan::SetModifications& sets = plan.sets;
  for (const auto* set : {&sets.restriction, &sets.deletion, &sets.inclusion, &sets.contraction}) {
    CheckGroundSet(*set, n);
  }
  candidates_ = UnorderedHashSet(n);
  if (sets.restriction) {
    candidates_ = *sets.restriction;
  } else {
    candidates_.MakeFull();
  }
  if (sets.deletion) candidates_.removeSet(*sets.deletion);
  inclusion_ = sets.inclusion ? *sets.inclusion : UnorderedHashSet(n);
  if (sets.contraction) {
    candidates_.removeSet(*sets.contraction);
    contraction_ = std::make_unique<UnorderedHashSet>(*sets.contraction);
    function_ = std::make_unique<ContractionWrapperSetFunction<SubmodularFunction>>(
        std::move(function_), *contraction_);
  }
  constraint_ = plan.constraint ? plan.constraint
                                : std::make_shared<CardinalitySetConstraint>(n, summary_size_);
}

std::string SummaryObjective::ConstraintDescription() const {
  if (dynamic_cast<const IntersectionOfMatroidsSetConstraint*>(constraint_.get()) != nullptr) {
    return "using a intersection of matroids constraint";
  }
  if (dynamic_cast<const CardinalitySetConstraint*>(constraint_.get()) != nullptr) {
    return fmt::format("down to summary of size k={}", summary_size_);
  }
  return "using unknown constraint.";
}

}  // namespace velmor
