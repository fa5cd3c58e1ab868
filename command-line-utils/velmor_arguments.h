#ifndef VELMOR_COMMAND_LINE_UTILS_VELMOR_ARGUMENTS_H_
#define VELMOR_COMMAND_LINE_UTILS_VELMOR_ARGUMENTS_H_

// The program's command-line options: one variable per option, holding its
// default until the parser stores the given value, and the program's argument
// table that binds each option name to its variable. The variable of option
// "a-b" is options::a_b (a dash becomes an underscore); the usage text lists
// the options under the group headings below, in this order.
//
// A str option's variable is null when the option was not given and has no
// default, an empty text for an empty default or an empty value, or the text.
// Special values: sumsize 2147483647 means "not given", a negative sumsize -p
// asks for k = n + 1 - p; numlibthreads -1 leaves the numerical library alone
// and 0 only queries it; optm_logiterperiod 0 turns the periodic log off;
// ctrl_logbalancereport 1 is the simple report, larger values the full vector;
// seed is used unless rseed is set.

#include <cstdint>

#include "command-line-utils/argument_parser.h"
#include "command-line-utils/argument_record.h"

namespace velmor {
namespace options {

// **** Facility location (FL) function
extern const char* flfilename;
extern int32_t flrows;
extern int32_t flcols;
extern double flresponsibility;
extern const char* fltransformation;
extern double flsoftness;
extern bool flnonormalize;
extern double flcentralityresponsibility;
extern const char* flcentralityspec;
extern const char* flcentralitytransformation;
extern const char* flcentralityccfspec;
extern bool flohexpand;
extern int32_t flasymiterations;
extern const char* fl_set_contraction;
extern const char* fl_set_attraction;
extern const char* fl_set_neglect;
extern const char* flsavefinaltransformedmatrix;
extern const char* flsavefinalcentralityvector;

// **** Facility location (FL2) function
extern const char* fl2filename;
extern int32_t fl2rows;
extern int32_t fl2cols;
extern double fl2responsibility;
extern const char* fl2transformation;
extern double fl2softness;
extern bool fl2nonormalize;
extern double fl2centralityresponsibility;
extern const char* fl2centralityspec;
extern const char* fl2centralitytransformation;
extern const char* fl2centralityccfspec;
extern bool fl2ohexpand;
extern int32_t fl2asymiterations;
extern const char* fl2_set_contraction;
extern const char* fl2_set_attraction;
extern const char* fl2_set_neglect;
extern const char* fl2savefinaltransformedmatrix;
extern const char* fl2savefinalcentralityvector;

// **** SParse Facility Location (SPFL) function
extern const char* spflfilename;
extern int32_t spflrows;
extern int32_t spflcols;
extern const char* spfltransformation;
extern double spflresponsibility;
extern double spflsoftness;
extern bool spflnonormalize;
extern const char* spfl_set_contraction;
extern const char* spfl_set_attraction;
extern const char* spfl_set_neglect;

// **** Sum-Sum Dispersion (SSD) function.
extern const char* ssdfilename;
extern int32_t ssdrows;
extern int32_t ssdcols;
extern const char* ssdtransformation;
extern double ssdresponsibility;
extern bool ssdnonormalize;

// **** Sum-Sum Dispersion (SSD2) function.
extern const char* ssd2filename;
extern int32_t ssd2rows;
extern int32_t ssd2cols;
extern const char* ssd2transformation;
extern double ssd2responsibility;
extern bool ssd2nonormalize;

// **** SParse Sum Sum Dispersion (SPSSD), redundancy function
extern const char* spssdfilename;
extern double spssdresponsibility;
extern const char* spssdtransformation;
extern bool spssdnonormalize;

// **** SParse Sum Sum Dispersion (SPSSD2), redundancy function
extern const char* spssd2filename;
extern double spssd2responsibility;
extern const char* spssd2transformation;
extern bool spssd2nonormalize;

// **** Random evaluations
extern int32_t randomevaluations;
extern bool ctrl_lograndomevalsolutions;

// Intersection-of-matroids constraint (JSON file)
extern const char* imjson;

// **** Logging (LOG) arguments
extern const char* loglevels;
extern const char* cloglevel;
extern bool clogtimestamps;
extern bool clogconcise;
extern const char* flogfilename;
extern const char* floglevel;

// ---- Other submodular max module-specific logging options
extern int32_t optm_logiterperiod;
extern bool ctrl_lognpv;
extern bool ctrl_logval;
extern bool ctrl_logdetail;
extern bool ctrl_logsolution;
extern bool ctrl_loggains;
extern bool ctrl_logorder;
extern bool ctrl_logccurvature;
extern bool ctrl_logcgains;
extern uint32_t ctrl_logbalancereport;

// **** pgPyPlot (gains, cumulative gains, and curvature) arguments
extern const char* pgpyplotfilename;
extern bool pgpyccclogscale;
extern bool pgpypuginpyplot;

// **** Set-based (SET) modification arguments
extern const char* set_restriction;
extern const char* set_deletion;
extern const char* set_inclusion;
extern const char* set_contraction;

// **** File save output arguments
extern const char* outasciiresultsfilename;
extern const char* outfilesummary;
extern const char* outfilegains;

// **** Optimization and behavior arguments
extern int32_t sumsize;

// ---- other optimization/misc. options.
extern int32_t numlibthreads;
extern int32_t partialenumeration;
extern int32_t ctrl_logpartialenumperiod;

// **** Misc. arguments
extern bool ctrl_loglimits;
extern bool rseed;
extern int32_t seed;
extern bool help;

// **** Greedy algorithm (beyond the table above; a name no other option starts with)
extern const char* greedyalgorithm;

// **** Numerical precision (beyond the table above)
extern const char* precision;
}  // namespace options

// The program's table (every row above plus the group headings, ended by the
// terminating row) and the parser over it, created on first use.
ArgumentRecord* ProgramArgumentTable();
ArgumentParser& ProgramArgumentParser();

// The program parser's operations (see ArgumentParser). ParseArguments with
// help switch "help" is the driver's entry: -help prints the usage to standard
// output and ends the process with status 0.
bool ParseArguments(int argc, char** argv, const char* help_switch_name);
int ReadArgumentsFile(const char* path);
void PrintUsage(const char* category_prefix, bool to_standard_error);
bool CheckRequired(bool report);

}  // namespace velmor

#endif  // VELMOR_COMMAND_LINE_UTILS_VELMOR_ARGUMENTS_H_
