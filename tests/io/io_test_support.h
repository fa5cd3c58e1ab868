#ifndef VELMOR_TESTS_IO_IO_TEST_SUPPORT_H_
#define VELMOR_TESTS_IO_IO_TEST_SUPPORT_H_

// Hand-made .npy bytes for the io tests.

#include <string>

namespace velmor::matrixio {

// A version 1.0 .npy file: magic, header length, `dictionary` padded with
// blanks and a newline to a multiple of 16 bytes, then `data`.
inline std::string NpyBytes(const std::string& dictionary, const std::string& data) {
  std::string text = dictionary;
  while ((10 + text.size() + 1) % 16 != 0) text += ' ';
  text += '\n';
  std::string bytes("\x93NUMPY\x01\x00", 8);
  bytes += static_cast<char>(text.size() & 0xff);
  bytes += static_cast<char>(text.size() >> 8);
  return bytes + text + data;
}

}  // namespace velmor::matrixio

#endif  // VELMOR_TESTS_IO_IO_TEST_SUPPORT_H_
