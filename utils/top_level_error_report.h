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

// Runs `work` and returns its status. An exception escaping it is reported on
// the ctrl logger at critical level, followed by "End of Backtrace.", and the
// status is 1.
int TopLevelErrorReport(const std::function<int()>& work);

}  // namespace velmor::exception

#endif  // VELMOR_UTILS_TOP_LEVEL_ERROR_REPORT_H_
