#include "command-line-utils/FacilityLocationGroupOptions.h"

#include <string>
#include <utility>

#include "matrixvector/Centrality.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"

namespace velmor {
namespace {

using exception::CommandLineError;

std::string Text(const char* text) { return text != nullptr ? text : ""; }

void CheckNonNegativeWeight(const std::string& tag, double weight) {
  if (!(weight >= 0.0)) {
    throw CommandLineError(exception::MakeCommandMessage(
        "%s weight = '%g', but must be non-negative", tag.c_str(), weight));
  }
}

}  // namespace

void FacilityLocationGroupOptions::Check() const {
  CheckNonNegativeWeight(tag, responsibility);
  CheckNonNegativeWeight(std::string(tag) + " centrality", centrality_responsibility);
  if (!CentralityKindFromText(Text(centrality_spec))) {
    throw CommandLineError(exception::MakeCommandMessage(
        "%s centrality '%s' is not supported; use ROWMIN(), ROWMAX(), ROWSUM() or ROWMEAN().", tag,
        Text(centrality_spec).c_str()));
  }
  if (Text(centrality_ccf_spec) != "LINEAR()") {
    throw CommandLineError(
        exception::MakeCommandMessage("%s centrality curve '%s' is not supported; use LINEAR().",
                                      tag, Text(centrality_ccf_spec).c_str()));
  }
  for (const auto& [given, option] :
       {std::pair{!Text(centrality_transformation).empty(), "centralitytransformation"},
        std::pair{save_centrality != nullptr, "savefinalcentralityvector"}}) {
    if (given && !(centrality_responsibility > 0)) {
      throw CommandLineError(exception::MakeCommandMessage(
          "-%s%s needs a centrality term: give -%scentralityresponsibility above 0.", prefix,
          option, prefix));
    }
  }
  if (asym_iterations > 0) {
    throw CommandLineError(exception::MakeCommandMessage(
        "%s asymmetric iterations (%d) are not supported; use 0.", tag, asym_iterations));
  }
}

}  // namespace velmor
