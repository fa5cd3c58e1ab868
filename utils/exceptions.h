#ifndef VELMOR_UTILS_EXCEPTIONS_H_
#define VELMOR_UTILS_EXCEPTIONS_H_

// The system's own exceptions: failures that a user's input, data or command
// line causes. Library argument errors use std::invalid_argument and internal
// failures std::runtime_error; every message, whatever its class, is built by
// the helpers of utils/error_messages.h.

#include <stdexcept>
#include <string>

namespace velmor::exception {

// Abstract root. The message is the finished text given to the constructor.
class VELMORException : public std::runtime_error {
 public:
  explicit VELMORException(const std::string& message) : std::runtime_error(message) {}
  ~VELMORException() override = default;
  // What kind of input went wrong; a constant, statically allocated text.
  virtual const char* ErrorSource() const noexcept = 0;
};

// A bad option, option value or option combination.
class CommandLineError : public VELMORException {
 public:
  using VELMORException::VELMORException;
  const char* ErrorSource() const noexcept override { return "Command line argument"; }
};

// A bad matrix, set or JSON file, or bad data in it.
class InputDataError : public VELMORException {
 public:
  using VELMORException::VELMORException;
  const char* ErrorSource() const noexcept override { return "Specified input data"; }
};

// A result made invalid by the data together with the parameters applied to
// it, such as a non-finite solution value.
class InputAndOrParameterDataError : public VELMORException {
 public:
  using VELMORException::VELMORException;
  const char* ErrorSource() const noexcept override {
    return "Input data and/or parameters applied thereon";
  }
};

}  // namespace velmor::exception

#endif  // VELMOR_UTILS_EXCEPTIONS_H_
