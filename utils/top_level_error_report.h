#ifndef VELMOR_UTILS_TOP_LEVEL_ERROR_REPORT_H_
#define VELMOR_UTILS_TOP_LEVEL_ERROR_REPORT_H_

// The report a program prints when an exception reaches its entry function.

#include <exception>
#include <functional>
#include <string>

namespace velmor::exception {

// The report's text for an exception: a first line "ERROR DETECTED: ..." that
// names the kind (system exception with its ErrorSource(), memory allocation
// failure, standard exception, unknown exception), then the nested chain with
// "++", "++++", ... prefixes. Every line ends with a newline.
std::string TopLevelErrorReportText(std::exception_ptr error);

// Reports `error` on the ctrl logger at critical level, the text followed by
// "End of Backtrace.", and returns the exit status 1. Without a ctrl logger
// (logging could not be set up) the same text goes to standard error.
int TopLevelErrorReport(std::exception_ptr error);

// Runs `work` and returns its status; an exception escaping it is reported as
// above and the status is 1.
int TopLevelErrorReport(const std::function<int()>& work);

}  // namespace velmor::exception

#endif  // VELMOR_UTILS_TOP_LEVEL_ERROR_REPORT_H_
