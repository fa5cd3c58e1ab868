#include "command-line-utils/velmor_arguments.h"

namespace velmor {
namespace options {

// **** Facility location (FL) function
const char* flfilename = nullptr;
int32_t flrows = -1;
int32_t flcols = -1;
double flresponsibility = 1.0;
const char* fltransformation = "";
double flsoftness = 0.0;
bool flnonormalize = false;
double flcentralityresponsibility = 0.0;
const char* flcentralityspec = "ROWMIN()";
const char* flcentralitytransformation = "";
const char* flcentralityccfspec = "LINEAR()";
bool flohexpand = false;
int32_t flasymiterations = 0;
const char* fl_set_contraction = nullptr;
const char* fl_set_attraction = nullptr;
const char* fl_set_neglect = nullptr;
const char* flsavefinaltransformedmatrix = nullptr;
const char* flsavefinalcentralityvector = nullptr;

// **** Facility location (FL2) function
const char* fl2filename = nullptr;
int32_t fl2rows = -1;
int32_t fl2cols = -1;
double fl2responsibility = 1.0;
const char* fl2transformation = "";
double fl2softness = 0.0;
bool fl2nonormalize = false;
double fl2centralityresponsibility = 0.0;
const char* fl2centralityspec = "ROWMIN()";
const char* fl2centralitytransformation = "";
const char* fl2centralityccfspec = "LINEAR()";
bool fl2ohexpand = false;
int32_t fl2asymiterations = 0;
const char* fl2_set_contraction = nullptr;
const char* fl2_set_attraction = nullptr;
const char* fl2_set_neglect = nullptr;
const char* fl2savefinaltransformedmatrix = nullptr;
const char* fl2savefinalcentralityvector = nullptr;

// **** SParse Facility Location (SPFL) function
const char* spflfilename = nullptr;
int32_t spflrows = -1;
int32_t spflcols = -1;
const char* spfltransformation = nullptr;
double spflresponsibility = 1.0;
double spflsoftness = 0.0;
bool spflnonormalize = false;
const char* spfl_set_contraction = nullptr;
const char* spfl_set_attraction = nullptr;
const char* spfl_set_neglect = nullptr;

// **** Sum-Sum Dispersion (SSD) function.
const char* ssdfilename = nullptr;
int32_t ssdrows = -1;
int32_t ssdcols = -1;
const char* ssdtransformation = "";
double ssdresponsibility = 1.0;
bool ssdnonormalize = false;

// **** Sum-Sum Dispersion (SSD2) function.
const char* ssd2filename = nullptr;
int32_t ssd2rows = -1;
int32_t ssd2cols = -1;
const char* ssd2transformation = "";
double ssd2responsibility = 1.0;
bool ssd2nonormalize = false;

// **** SParse Sum Sum Dispersion (SPSSD), redundancy function
const char* spssdfilename = nullptr;
double spssdresponsibility = 1.0;
const char* spssdtransformation = nullptr;
bool spssdnonormalize = false;

// **** SParse Sum Sum Dispersion (SPSSD2), redundancy function
const char* spssd2filename = nullptr;
double spssd2responsibility = 1.0;
const char* spssd2transformation = nullptr;
bool spssd2nonormalize = false;

// **** Random evaluations
int32_t randomevaluations = 0;
bool ctrl_lograndomevalsolutions = false;

// Intersection-of-matroids constraint (JSON file)
const char* imjson = nullptr;

// **** Logging (LOG) arguments
const char* loglevels = nullptr;
const char* cloglevel = nullptr;
bool clogtimestamps = false;
bool clogconcise = true;
const char* flogfilename = nullptr;
const char* floglevel = nullptr;

// ---- Other submodular max module-specific logging options
int32_t optm_logiterperiod = 0;
bool ctrl_lognpv = true;
bool ctrl_logval = true;
bool ctrl_logdetail = false;
bool ctrl_logsolution = false;
bool ctrl_loggains = false;
bool ctrl_logorder = false;
bool ctrl_logccurvature = false;
bool ctrl_logcgains = false;
uint32_t ctrl_logbalancereport = 0;

// **** pgPyPlot (gains, cumulative gains, and curvature) arguments
const char* pgpyplotfilename = nullptr;
bool pgpyccclogscale = false;
bool pgpypuginpyplot = false;

// **** Set-based (SET) modification arguments
const char* set_restriction = nullptr;
const char* set_deletion = nullptr;
const char* set_inclusion = nullptr;
const char* set_contraction = nullptr;

// **** File save output arguments
const char* outasciiresultsfilename = nullptr;
const char* outfilesummary = nullptr;
const char* outfilegains = nullptr;

// **** Optimization and behavior arguments
int32_t sumsize = 2147483647;

// ---- other optimization/misc. options.
int32_t numlibthreads = -1;
int32_t partialenumeration = 0;
int32_t ctrl_logpartialenumperiod = 100;

// **** Misc. arguments
bool ctrl_loglimits = true;
bool rseed = false;
int32_t seed = 12345;
bool help = false;

const char* greedyalgorithm = nullptr;

const char* precision = nullptr;
}  // namespace options

namespace {

// Built during static initialization, before the program's entry runs. Every
// row is optional except help; none is an ARRAY row; all have help level 1.
ArgumentRecord program_table[] = {
    ArgumentRecord::Heading("**** Facility location (FL) function"),
    ArgumentRecord("flfilename", ArgumentRecord::kOptional, &options::flfilename,
                   "Facility location input matrix .csv, .npy, or .bin file name."),
    ArgumentRecord("flrows", ArgumentRecord::kOptional, &options::flrows,
                   "Number of rows in the case of a FL binary file."),
    ArgumentRecord("flcols", ArgumentRecord::kOptional, &options::flcols,
                   "Number of cols in the case of a FL binary file."),
    ArgumentRecord("flresponsibility", ArgumentRecord::kOptional, &options::flresponsibility,
                   "Responsibility of FL function when used with other functions."),
    ArgumentRecord("fltransformation", ArgumentRecord::kOptional, &options::fltransformation,
                   "Matrix transformation spec for FL input matrix."),
    ArgumentRecord("flsoftness", ArgumentRecord::kOptional, &options::flsoftness,
                   "Softness parameter for facility location, softness >=0 where 0 means hard."),
    ArgumentRecord("flnonormalize", ArgumentRecord::kOptional, &options::flnonormalize,
                   "Do not normalize FL function so that it is not in [0,1] range."),
    ArgumentRecord("flcentralityresponsibility", ArgumentRecord::kOptional,
                   &options::flcentralityresponsibility,
                   "Responsibility of centrality modular function computed via the FL function's "
                   "input matrix."),
    ArgumentRecord("flcentralityspec", ArgumentRecord::kOptional, &options::flcentralityspec,
                   "String to specify type of centrality to use for FL."),
    ArgumentRecord("flcentralitytransformation", ArgumentRecord::kOptional,
                   &options::flcentralitytransformation,
                   "Centrality transformation spec for FL's centrality vector."),
    ArgumentRecord("flcentralityccfspec", ArgumentRecord::kOptional, &options::flcentralityccfspec,
                   "CCF spec string to use to make FL centrality submodular."),
    ArgumentRecord("flohexpand", ArgumentRecord::kOptional, &options::flohexpand,
                   "Treat FL input matrix as integer encoded one-hot & expand to dense 0/1 valued "
                   "one-hot before using."),
    ArgumentRecord("flasymiterations", ArgumentRecord::kOptional, &options::flasymiterations,
                   "Number of iterations to transform FL into a CCMI-based asymmetric FL function. "
                   "0 = no transformation."),
    ArgumentRecord("fl-set-contraction", ArgumentRecord::kOptional, &options::fl_set_contraction,
                   "FL contraction set C: f' : 2^{V} \\to \\R, where f'(A) = f(A \\cup C) - f(C)."),
    ArgumentRecord("fl-set-attraction", ArgumentRecord::kOptional, &options::fl_set_attraction,
                   "FL attraction set A to form CMI function: g(X) = I_f(X;A|N)."),
    ArgumentRecord(
        "fl-set-neglect", ArgumentRecord::kOptional, &options::fl_set_neglect,
        "FL neglect set N (which may be empty) to form CMI function: g(X) = I_f(X;A|N)."),
    ArgumentRecord(
        "flsavefinaltransformedmatrix", ArgumentRecord::kOptional,
        &options::flsavefinaltransformedmatrix,
        "File name (.npy, .csv) to save FL's final matrix after all transformations and mods."),
    ArgumentRecord("flsavefinalcentralityvector", ArgumentRecord::kOptional,
                   &options::flsavefinalcentralityvector,
                   "File name (.npy, .csv) to save FL's final centrality vector after all "
                   "transformations and mods."),
    ArgumentRecord::Heading("**** Facility location (FL2) function"),
    ArgumentRecord("fl2filename", ArgumentRecord::kOptional, &options::fl2filename,
                   "Facility location input matrix .csv, .npy, or .bin file name."),
    ArgumentRecord("fl2rows", ArgumentRecord::kOptional, &options::fl2rows,
                   "Number of rows in the case of a FL2 binary file."),
    ArgumentRecord("fl2cols", ArgumentRecord::kOptional, &options::fl2cols,
                   "Number of cols in the case of a FL2 binary file."),
    ArgumentRecord("fl2responsibility", ArgumentRecord::kOptional, &options::fl2responsibility,
                   "Responsibility of FL2 function when used with other functions."),
    ArgumentRecord("fl2transformation", ArgumentRecord::kOptional, &options::fl2transformation,
                   "Matrix transformation spec for FL2 input matrix."),
    ArgumentRecord("fl2softness", ArgumentRecord::kOptional, &options::fl2softness,
                   "Softness parameter for facility location, softness >=0 where 0 means hard."),
    ArgumentRecord("fl2nonormalize", ArgumentRecord::kOptional, &options::fl2nonormalize,
                   "Do not normalize FL2 function so that it is not in [0,1] range."),
    ArgumentRecord("fl2centralityresponsibility", ArgumentRecord::kOptional,
                   &options::fl2centralityresponsibility,
                   "Responsibility of centrality modular function computed via the FL2 function's "
                   "input matrix."),
    ArgumentRecord("fl2centralityspec", ArgumentRecord::kOptional, &options::fl2centralityspec,
                   "String to specify type of centrality to use for FL2."),
    ArgumentRecord("fl2centralitytransformation", ArgumentRecord::kOptional,
                   &options::fl2centralitytransformation,
                   "Centrality transformation spec for FL2's centrality vector."),
    ArgumentRecord("fl2centralityccfspec", ArgumentRecord::kOptional,
                   &options::fl2centralityccfspec,
                   "CCF spec string to use to make FL2 centrality submodular."),
    ArgumentRecord("fl2ohexpand", ArgumentRecord::kOptional, &options::fl2ohexpand,
                   "Treat FL2 input matrix as integer encoded one-hot & expand to dense 0/1 valued "
                   "one-hot before using."),
    ArgumentRecord("fl2asymiterations", ArgumentRecord::kOptional, &options::fl2asymiterations,
                   "Number of iterations to transform FL2 into a CCMI-based asymmetric FL "
                   "function. 0 = no transformation."),
    ArgumentRecord(
        "fl2-set-contraction", ArgumentRecord::kOptional, &options::fl2_set_contraction,
        "FL2 contraction set C: f' : 2^{V} \\to \\R, where f'(A) = f(A \\cup C) - f(C)."),
    ArgumentRecord("fl2-set-attraction", ArgumentRecord::kOptional, &options::fl2_set_attraction,
                   "FL2 attraction set A to form CMI function: g(X) = I_f(X;A|N)."),
    ArgumentRecord(
        "fl2-set-neglect", ArgumentRecord::kOptional, &options::fl2_set_neglect,
        "FL2 neglect set N (which may be empty) to form CMI function: g(X) = I_f(X;A|N)."),
    ArgumentRecord(
        "fl2savefinaltransformedmatrix", ArgumentRecord::kOptional,
        &options::fl2savefinaltransformedmatrix,
        "File name (.npy, .csv) to save FL2's final matrix after all transformations and mods."),
    ArgumentRecord("fl2savefinalcentralityvector", ArgumentRecord::kOptional,
                   &options::fl2savefinalcentralityvector,
                   "File name (.npy, .csv) to save FL2's final centrality vector after all "
                   "transformations and mods."),
    ArgumentRecord::Heading("**** SParse Facility Location (SPFL) function"),
    ArgumentRecord("spflfilename", ArgumentRecord::kOptional, &options::spflfilename,
                   "Sparse FL input sparse matrix .csv or python scipy .npz file name."),
    ArgumentRecord("spflrows", ArgumentRecord::kOptional, &options::spflrows,
                   "Number of rows in the case of a sparse SPFL binary file."),
    ArgumentRecord("spflcols", ArgumentRecord::kOptional, &options::spflcols,
                   "Number of cols in the case of a sparse SPFL binary file."),
    ArgumentRecord("spfltransformation", ArgumentRecord::kOptional, &options::spfltransformation,
                   "Matrix transformation spec for SPFL sparse input matrix."),
    ArgumentRecord("spflresponsibility", ArgumentRecord::kOptional, &options::spflresponsibility,
                   "Responsibility of sparse FL function when used with other functions."),
    ArgumentRecord(
        "spflsoftness", ArgumentRecord::kOptional, &options::spflsoftness,
        "Softness parameter for sparse facility location, softness >=0 where 0 means hard."),
    ArgumentRecord("spflnonormalize", ArgumentRecord::kOptional, &options::spflnonormalize,
                   "Do not normalize SPFL function so that it is not in [0,1] range."),
    ArgumentRecord(
        "spfl-set-contraction", ArgumentRecord::kOptional, &options::spfl_set_contraction,
        "SPFL contraction set C: f' : 2^{V} \\to \\R, where f'(A) = f(A \\cup C) - f(C)."),
    ArgumentRecord("spfl-set-attraction", ArgumentRecord::kOptional, &options::spfl_set_attraction,
                   "SPFL attraction set A to form CMI function: g(X) = I_f(X;A|N)."),
    ArgumentRecord(
        "spfl-set-neglect", ArgumentRecord::kOptional, &options::spfl_set_neglect,
        "SPFL neglect set N (which may be empty) to form CMI function: g(X) = I_f(X;A|N)."),
    ArgumentRecord::Heading("**** Sum-Sum Dispersion (SSD) function."),
    ArgumentRecord("ssdfilename", ArgumentRecord::kOptional, &options::ssdfilename,
                   "Input matrix file for SSD function."),
    ArgumentRecord("ssdrows", ArgumentRecord::kOptional, &options::ssdrows,
                   "Number of rows in the case of a SSD binary file."),
    ArgumentRecord("ssdcols", ArgumentRecord::kOptional, &options::ssdcols,
                   "Number of cols in the case of a SSD binary file."),
    ArgumentRecord("ssdtransformation", ArgumentRecord::kOptional, &options::ssdtransformation,
                   "Matrix transformation spec for SSD input matrix"),
    ArgumentRecord("ssdresponsibility", ArgumentRecord::kOptional, &options::ssdresponsibility,
                   "Responsibility of SSD function when used with other functions."),
    ArgumentRecord("ssdnonormalize", ArgumentRecord::kOptional, &options::ssdnonormalize,
                   "Do not [0,1] normalize the SSD function"),
    ArgumentRecord::Heading("**** Sum-Sum Dispersion (SSD2) function."),
    ArgumentRecord("ssd2filename", ArgumentRecord::kOptional, &options::ssd2filename,
                   "Input matrix file for SSD2 function."),
    ArgumentRecord("ssd2rows", ArgumentRecord::kOptional, &options::ssd2rows,
                   "Number of rows in the case of a SSD2 binary file."),
    ArgumentRecord("ssd2cols", ArgumentRecord::kOptional, &options::ssd2cols,
                   "Number of cols in the case of a SSD2 binary file."),
    ArgumentRecord("ssd2transformation", ArgumentRecord::kOptional, &options::ssd2transformation,
                   "Matrix transformation spec for SSD2 input matrix"),
    ArgumentRecord("ssd2responsibility", ArgumentRecord::kOptional, &options::ssd2responsibility,
                   "Responsibility of SSD2 function when used with other functions."),
    ArgumentRecord("ssd2nonormalize", ArgumentRecord::kOptional, &options::ssd2nonormalize,
                   "Do not [0,1] normalize the SSD2 function"),
    ArgumentRecord::Heading("**** SParse Sum Sum Dispersion (SPSSD), redundancy function"),
    ArgumentRecord("spssdfilename", ArgumentRecord::kOptional, &options::spssdfilename,
                   "Input matrix file for SPSSD function."),
    ArgumentRecord("spssdresponsibility", ArgumentRecord::kOptional, &options::spssdresponsibility,
                   "Responsibility of SPSSD function when used with other functions."),
    ArgumentRecord("spssdtransformation", ArgumentRecord::kOptional, &options::spssdtransformation,
                   "Matrix transformation spec for SPSSD input matrix"),
    ArgumentRecord("spssdnonormalize", ArgumentRecord::kOptional, &options::spssdnonormalize,
                   "Do not [0,1] normalize the SPSSD function"),
    ArgumentRecord::Heading("**** SParse Sum Sum Dispersion (SPSSD2), redundancy function"),
    ArgumentRecord("spssd2filename", ArgumentRecord::kOptional, &options::spssd2filename,
                   "Input matrix file for SPSSD2 function."),
    ArgumentRecord("spssd2responsibility", ArgumentRecord::kOptional,
                   &options::spssd2responsibility,
                   "Responsibility of SPSSD2 function when used with other functions."),
    ArgumentRecord("spssd2transformation", ArgumentRecord::kOptional,
                   &options::spssd2transformation,
                   "Matrix transformation spec for SPSSD2 input matrix"),
    ArgumentRecord("spssd2nonormalize", ArgumentRecord::kOptional, &options::spssd2nonormalize,
                   "Do not [0,1] normalize the SPSSD2 function"),
    ArgumentRecord::Heading("**** Random evaluations"),
    ArgumentRecord(
        "randomevaluations", ArgumentRecord::kOptional, &options::randomevaluations,
        "Number of uniformly at random subset evaluations of size k to evaluate for comparison."),
    ArgumentRecord("ctrl-lograndomevalsolutions", ArgumentRecord::kOptional,
                   &options::ctrl_lograndomevalsolutions,
                   "Log the two uniformly at random sets achieving the min/max evaluations."),
    ArgumentRecord::Heading("**** Intersection Matroid Constraint (IM) json file specification"),
    ArgumentRecord("imjson", ArgumentRecord::kOptional, &options::imjson,
                   "Intersection of matroids encoded in a JSON file."),
    ArgumentRecord::Heading("**** Logging (LOG) arguments"),
    ArgumentRecord("loglevels", ArgumentRecord::kOptional, &options::loglevels,
                   "Levels {logger=level}+|{level} for logger in {optm,mtvc,mxfm,ctrl}."),
    ArgumentRecord("cloglevel", ArgumentRecord::kOptional, &options::cloglevel,
                   "Minimum level for console output logging, level in "
                   "{trace,debug,info,warning,error,critical,off}."),
    ArgumentRecord("clogtimestamps", ArgumentRecord::kOptional, &options::clogtimestamps,
                   "Print time/date stamps in console logging."),
    ArgumentRecord("clogconcise", ArgumentRecord::kOptional, &options::clogconcise,
                   "Concise printing in console logging."),
    ArgumentRecord("flogfilename", ArgumentRecord::kOptional, &options::flogfilename,
                   "Name of file to place logging output."),
    ArgumentRecord("floglevel", ArgumentRecord::kOptional, &options::floglevel,
                   "Minimum level for log file output logging, level in "
                   "{trace,debug,info,warning,error,critical,off}."),
    ArgumentRecord::Heading("  ---- Other submodular max module-specific logging options"),
    ArgumentRecord("optm-logiterperiod", ArgumentRecord::kOptional, &options::optm_logiterperiod,
                   "Logging iteration period for greedy max logging (lower means more logging, but "
                   "0 means off)."),
    ArgumentRecord("ctrl-lognpv", ArgumentRecord::kOptional, &options::ctrl_lognpv,
                   "Any vector outputs are shown as python numpy vectors rather than plain."),
    ArgumentRecord("ctrl-logval", ArgumentRecord::kOptional, &options::ctrl_logval,
                   "Log solution value, f(solution set)."),
    ArgumentRecord("ctrl-logdetail", ArgumentRecord::kOptional, &options::ctrl_logdetail,
                   "Log detail and curvature/bound information about the computed solution."),
    ArgumentRecord("ctrl-logsolution", ArgumentRecord::kOptional, &options::ctrl_logsolution,
                   "Log elements of solution set."),
    ArgumentRecord("ctrl-loggains", ArgumentRecord::kOptional, &options::ctrl_loggains,
                   "Log gain vector."),
    ArgumentRecord("ctrl-logorder", ArgumentRecord::kOptional, &options::ctrl_logorder,
                   "Log ordered summary."),
    ArgumentRecord("ctrl-logccurvature", ArgumentRecord::kOptional, &options::ctrl_logccurvature,
                   "Log conditional curvature vector."),
    ArgumentRecord("ctrl-logcgains", ArgumentRecord::kOptional, &options::ctrl_logcgains,
                   "Log cumulative gain vector."),
    ArgumentRecord("ctrl-logbalancereport", ArgumentRecord::kOptional,
                   &options::ctrl_logbalancereport,
                   "Log balance report. =1 for simple report, >1 for full vector."),
    ArgumentRecord::Heading("**** pgPyPlot (gains, cumulative gains, and curvature) arguments"),
    ArgumentRecord(
        "pgpyplotfilename", ArgumentRecord::kOptional, &options::pgpyplotfilename,
        "Save pgpyplot, conditional curvature, and normalized gains (ccg) to python script file."),
    ArgumentRecord("pgpyccclogscale", ArgumentRecord::kOptional, &options::pgpyccclogscale,
                   "Use log (rather than linear) scale for conditional curvature in pgpyplot."),
    ArgumentRecord("pgpypuginpyplot", ArgumentRecord::kOptional, &options::pgpypuginpyplot,
                   "Use non-normalized gains in pgpyplot output."),
    ArgumentRecord::Heading("**** Set-based (SET) modification arguments"),
    ArgumentRecord("set-restriction", ArgumentRecord::kOptional, &options::set_restriction,
                   "Restriction set R:  f': 2^R \\to \\R, where f'(A) = f(A)."),
    ArgumentRecord("set-deletion", ArgumentRecord::kOptional, &options::set_deletion,
                   "Deletion set D:  f': 2^{V \\ D} \\to \\R, where f'(A) = f(A)."),
    ArgumentRecord("set-inclusion", ArgumentRecord::kOptional, &options::set_inclusion,
                   "Inclusion set I: f': 2^V \\to \\R, where f'(A) = f(A \\cup I)."),
    ArgumentRecord(
        "set-contraction", ArgumentRecord::kOptional, &options::set_contraction,
        "Contraction set C: f' : 2^{V \\ C} \\to \\R, where f'(A) = f(A \\cup C) - f(C)."),
    ArgumentRecord::Heading("**** File save output arguments"),
    ArgumentRecord("outasciiresultsfilename", ArgumentRecord::kOptional,
                   &options::outasciiresultsfilename,
                   "Save order and gains to given two line .csv file."),
    ArgumentRecord("outfilesummary", ArgumentRecord::kOptional, &options::outfilesummary,
                   "Print the ordered summary to given .csv or .npy file."),
    ArgumentRecord("outfilegains", ArgumentRecord::kOptional, &options::outfilegains,
                   "Print the ordered gains to given .csv or .npy file."),
    ArgumentRecord::Heading("**** Optimization and behavior arguments"),
    ArgumentRecord("sumsize", ArgumentRecord::kOptional, &options::sumsize,
                   "The size, k, of the summary (-p means k=(n+1-p), p>0), must have k<=n."),
    ArgumentRecord::Heading("  ---- other optimization/misc. options."),
    ArgumentRecord("numlibthreads", ArgumentRecord::kOptional, &options::numlibthreads,
                   "Number of threads to use in numerical library. Set to 0 to query default."),
    ArgumentRecord("partialenumeration", ArgumentRecord::kOptional, &options::partialenumeration,
                   "Set size for partial enumeration."),
    ArgumentRecord("ctrl-logpartialenumperiod", ArgumentRecord::kOptional,
                   &options::ctrl_logpartialenumperiod,
                   "Partial enumeration log message print period."),
    ArgumentRecord::Heading("**** Misc. arguments"),
    ArgumentRecord("ctrl-loglimits", ArgumentRecord::kOptional, &options::ctrl_loglimits,
                   "Log all program limits."),
    ArgumentRecord("rseed", ArgumentRecord::kOptional, &options::rseed,
                   "Choose a random seed rather than being deterministic."),
    ArgumentRecord("seed", ArgumentRecord::kOptional, &options::seed,
                   "If not rseed, choose given integer value for seed for deterministic behavior."),
    ArgumentRecord("help", ArgumentRecord::kHelp, &options::help, "Print help message"),
    ArgumentRecord::Heading("**** Greedy algorithm"),
    ArgumentRecord(
        "greedyalgorithm", ArgumentRecord::kOptional, &options::greedyalgorithm,
        "Greedy algorithm: standard (the default), accelerated, stochastic[(epsilon)] or "
        "threshold[(epsilon)] (epsilon 0.1 if not given), any of them with :T appended to run it "
        "on T threads (multi-threaded greedy, MGM), e.g. accelerated:2. All but the plain standard "
        "greedy stop at the first negative gain."),
    ArgumentRecord::Heading("**** Numerical precision"),
    ArgumentRecord("precision", ArgumentRecord::kOptional, &options::precision,
                   "Element type of the matrices: file (double for .npy and .npz files of float64 "
                   "values, single otherwise), single, or double (also for .csv and .bin files)."),
    ArgumentRecord::End(),
};

}  // namespace

ArgumentRecord* ProgramArgumentTable() { return program_table; }

ArgumentParser& ProgramArgumentParser() {
  static ArgumentParser parser(program_table);
  return parser;
}

bool ParseArguments(int argc, char** argv, const char* help_switch_name) {
  return ProgramArgumentParser().ParseArguments(argc, argv, help_switch_name);
}

int ReadArgumentsFile(const char* path) { return ProgramArgumentParser().ReadArgumentsFile(path); }

void PrintUsage(const char* category_prefix, bool to_standard_error) {
  ProgramArgumentParser().PrintUsage(category_prefix, to_standard_error);
}

bool CheckRequired(bool report) { return ProgramArgumentParser().CheckRequired(report); }

}  // namespace velmor
