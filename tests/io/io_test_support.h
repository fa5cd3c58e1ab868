#ifndef VELMOR_TESTS_IO_IO_TEST_SUPPORT_H_
#define VELMOR_TESTS_IO_IO_TEST_SUPPORT_H_

// Hand-made .npy bytes for the io tests, folders of files written once by
// python, and whether the address sanitizer (which reserves much address
// space) is built in.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "support/temp_files.h"

namespace velmor::matrixio {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif

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

// A folder holding the files `script` wrote when first asked for, removed
// once all tests are done (and not by the exit of a forked child).
inline const testing::TempDir& FilesWrittenOnce(const char* script) {
  struct Folders : ::testing::Environment {
    std::map<const char*, std::unique_ptr<testing::TempDir>> written;
    void TearDown() override { written.clear(); }
  };
  static Folders* const folders =
      static_cast<Folders*>(::testing::AddGlobalTestEnvironment(new Folders));
  std::unique_ptr<testing::TempDir>& folder = folders->written[script];
  if (!folder) {
    folder = std::make_unique<testing::TempDir>();
    testing::RunPython(*folder, script);
  }
  return *folder;
}

}  // namespace velmor::matrixio

#endif  // VELMOR_TESTS_IO_IO_TEST_SUPPORT_H_
