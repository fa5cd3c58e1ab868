#ifndef VELMOR_COMMAND_LINE_UTILS_RUNOPTIONS_H_
#define VELMOR_COMMAND_LINE_UTILS_RUNOPTIONS_H_

// The program's options as the driver takes them: the logging settings, each
// function group's option values, the precision, and the checks of every
// option that needs no file. Reads the option variables; opens, loads and
// writes nothing, so it can run on any command line before a file is touched.

#include <array>

#include "command-line-utils/FacilityLocationGroupOptions.h"
#include "command-line-utils/GreedyAlgorithmChoice.h"

namespace velmor {

// The logging options, for logging::SetUpLogging.
struct LoggingOptions {
  const char* levels;
  const char* console_level;
  bool timestamps;
  bool concise;
  const char* file_name;
  const char* file_level;
};
LoggingOptions ProgramLoggingOptions();

// The element type the matrices of a run are held in.
enum class Precision {
  kFollowTheFile,  // double for .npy files of float64 values and .npz archives
                   // of float64 data, single for anything else
  kSingle,
  kDouble,
};

// From the option's text: null or "file", "single", "double". Throws
// exception::CommandLineError "Invalid precision '%s' for option -%s: use
// file, single or double." for anything else.
Precision ParsePrecision(const char* text, const char* option);

// The facility-location groups FL and FL2.
FacilityLocationGroupOptions FacilityLocationOptions();
FacilityLocationGroupOptions SecondFacilityLocationOptions();

// A dispersion group (SSD, SSD2, SPSSD, SPSSD2); the sparse ones take no
// rows and cols (-1).
struct DispersionGroupOptions {
  const char* tag;
  const char* file_name;
  int rows, cols;
  const char* transformation;
  double responsibility;
  bool no_normalize;
  bool sparse;
};
std::array<DispersionGroupOptions, 4> DispersionGroups();

// What the options alone decide, checked before any file is opened.
struct CheckedRunOptions {
  GreedyAlgorithmChoice algorithm;
  Precision precision;
};

// Checks every option that needs no file: the greedy algorithm and the
// precision, each given function group's options (weights, centrality, a
// neglect set without an attraction set, ...), and that some function group
// is given at all. Throws exception::CommandLineError.
CheckedRunOptions CheckOptionsBeforeLoading();

}  // namespace velmor

#endif  // VELMOR_COMMAND_LINE_UTILS_RUNOPTIONS_H_
