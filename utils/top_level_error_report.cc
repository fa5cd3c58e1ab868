#include "utils/top_level_error_report.h"

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
    stream << kErrorDetected << "Memory allocation failure exception caught: " << e.what()
           << '\n';
    PrintNestedExceptions(stream, e, 2, 2, '+');
  } catch (const std::exception& e) {
    stream << kErrorDetected << "Exception caught: " << e.what() << '\n';
    PrintNestedExceptions(stream, e, 2, 2, '+');
  } catch (...) {
    stream << kErrorDetected << "Unknown exception caught: " << '\n';
  }
  return stream.str();
}

int TopLevelErrorReport(const std::function<int()>& work) {
  std::exception_ptr error;
  try {
    return work();
  } catch (...) {
    error = std::current_exception();
  }
  const std::string report = TopLevelErrorReportText(error);
  logging::GetLogger("ctrl")->critical("{}End of Backtrace.", report);
  return 1;
}

}  // namespace velmor::exception
