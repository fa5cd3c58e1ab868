#include "utils/top_level_error_report.h"

#include <cstdio>
#include <new>
#include <sstream>

#include "utils/error_messages.h"
#include "utils/exceptions.h"
#include "utils/logging.h"

namespace velmor::exception {
namespace {

constexpr const char* kErrorDetected = "ERROR DETECTED: ";

}  // namespace

std::string TopLevelErrorReportText(std::exception_ptr error) {
  std::ostringstream stream;
  try {
    std::rethrow_exception(error);
  } catch (const VELMORException& e) {
    stream << kErrorDetected << e.ErrorSource() << ": " << e.what() << '\n';
    PrintNestedExceptions(stream, e, 2, 2, '+');
  } catch (const std::bad_alloc& e) {
    stream << kErrorDetected << "Memory allocation failure exception caught: " << e.what() << '\n';
    PrintNestedExceptions(stream, e, 2, 2, '+');
  } catch (const std::exception& e) {
    stream << kErrorDetected << "Exception caught: " << e.what() << '\n';
    PrintNestedExceptions(stream, e, 2, 2, '+');
  } catch (...) {
    stream << kErrorDetected << "Unknown exception caught: " << '\n';
  }
  return stream.str();
}

int TopLevelErrorReport(std::exception_ptr error) {
  const std::string report = TopLevelErrorReportText(error);
  std::shared_ptr<spdlog::logger> ctrl;
  try {
    ctrl = logging::GetLogger("ctrl");
  } catch (const std::exception&) {
    std::fprintf(stderr, "%sEnd of Backtrace.\n", report.c_str());
    std::fflush(stderr);
    return 1;
  }
  ctrl->critical("{}End of Backtrace.", report);
  ctrl->flush();
  return 1;
}

int TopLevelErrorReport(const std::function<int()>& work) {
  try {
    return work();
  } catch (...) {
    return TopLevelErrorReport(std::current_exception());
  }
}

}  // namespace velmor::exception
