#include "command-line-utils/RunOptions.h"

#include <string>

#include "command-line-utils/velmor_arguments.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"

namespace velmor {
namespace {

using exception::CommandLineError;

void CheckNeglectHasAttraction(const char* tag, const char* attraction, const char* neglect) {
  if (neglect != nullptr && attraction == nullptr) {
    throw CommandLineError(exception::MakeCommandMessage(
        "%s given a neglect set string for R but not given any attraction set string for G.", tag));
  }
}

void CheckFunctionGroupOptions() {
  using namespace options;
  bool any_group = false;
  for (const FacilityLocationGroupOptions& g :
       {FacilityLocationOptions(), SecondFacilityLocationOptions()}) {
    if (g.file_name == nullptr) continue;
    g.Check();
    CheckNeglectHasAttraction(g.tag, g.set_attraction, g.set_neglect);
    any_group = true;
  }
  if (spflfilename != nullptr) {
    if (!(spflresponsibility >= 0)) {
      throw CommandLineError(
          "Sparse facility location function needs non-negative responsibility value.");
    }
    CheckNeglectHasAttraction("SPFL", spfl_set_attraction, spfl_set_neglect);
    any_group = true;
  }
  for (const DispersionGroupOptions& d : DispersionGroups()) {
    if (d.file_name == nullptr) continue;
    if (!(d.responsibility >= 0)) {
      throw CommandLineError(d.sparse
                                 ? std::string(d.tag) + " needs non-negative responsibility value."
                                 : "SumSumDispersion function needs non-negative "
                                   "responsibility value.");
    }
    any_group = true;
  }
  if (!any_group) throw CommandLineError("Need to specify at least one function on command line.");
}

}  // namespace

LoggingOptions ProgramLoggingOptions() {
  using namespace options;
  return {loglevels, cloglevel, clogtimestamps, clogconcise, flogfilename, floglevel};
}

Precision ParsePrecision(const char* text, const char* option) {
  const std::string value = text != nullptr ? text : "file";
  if (value == "file") return Precision::kFollowTheFile;
  if (value == "single") return Precision::kSingle;
  if (value == "double") return Precision::kDouble;
  throw CommandLineError(exception::MakeCommandMessage(
      "Invalid precision '%s' for option -%s: use file, single or double.", value.c_str(), option));
}

FacilityLocationGroupOptions FacilityLocationOptions() {
  using namespace options;
  return FacilityLocationGroupOptions{"FL",
                                      "fl",
                                      flfilename,
                                      flrows,
                                      flcols,
                                      flresponsibility,
                                      fltransformation,
                                      flsoftness,
                                      flnonormalize,
                                      flcentralityresponsibility,
                                      flcentralityspec,
                                      flcentralitytransformation,
                                      flcentralityccfspec,
                                      flohexpand,
                                      flasymiterations,
                                      fl_set_contraction,
                                      fl_set_attraction,
                                      fl_set_neglect,
                                      flsavefinaltransformedmatrix,
                                      flsavefinalcentralityvector};
}

FacilityLocationGroupOptions SecondFacilityLocationOptions() {
  using namespace options;
  return FacilityLocationGroupOptions{"FL2",
                                      "fl2",
                                      fl2filename,
                                      fl2rows,
                                      fl2cols,
                                      fl2responsibility,
                                      fl2transformation,
                                      fl2softness,
                                      fl2nonormalize,
                                      fl2centralityresponsibility,
                                      fl2centralityspec,
                                      fl2centralitytransformation,
                                      fl2centralityccfspec,
                                      fl2ohexpand,
                                      fl2asymiterations,
                                      fl2_set_contraction,
                                      fl2_set_attraction,
                                      fl2_set_neglect,
                                      fl2savefinaltransformedmatrix,
                                      fl2savefinalcentralityvector};
}

std::array<DispersionGroupOptions, 4> DispersionGroups() {
  using namespace options;
  return {{{"SSD", ssdfilename, ssdrows, ssdcols, ssdtransformation, ssdresponsibility,
            ssdnonormalize, false},
           {"SSD2", ssd2filename, ssd2rows, ssd2cols, ssd2transformation, ssd2responsibility,
            ssd2nonormalize, false},
           {"SPSSD", spssdfilename, -1, -1, spssdtransformation, spssdresponsibility,
            spssdnonormalize, true},
           {"SPSSD2", spssd2filename, -1, -1, spssd2transformation, spssd2responsibility,
            spssd2nonormalize, true}}};
}

CheckedRunOptions CheckOptionsBeforeLoading() {
  using namespace options;
  CheckedRunOptions checked{
      .algorithm = ParseGreedyAlgorithmChoice(greedyalgorithm, "greedyalgorithm"),
      .precision = ParsePrecision(precision, "precision")};
  CheckFunctionGroupOptions();
  return checked;
}

}  // namespace velmor
