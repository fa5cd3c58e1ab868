#ifndef VELMOR_TESTS_IO_IO_TEST_SUPPORT_H_
#define VELMOR_TESTS_IO_IO_TEST_SUPPORT_H_

// Shared helpers of the io tests: a fresh temporary folder per test, file
// contents, hand-made .npy bytes, the text of a nested exception chain, and a
// runner for python.

#include <gtest/gtest.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

namespace velmor::matrixio::testing {

// A folder under the system's temporary folder, removed with its contents.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velmor_io_XXXXXX").string();
    char* made = mkdtemp(pattern.data());
    if (made == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = made;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string File(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

inline std::string ReadFileBytes(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

inline void WriteFileBytes(const std::string& name, const std::string& bytes) {
  std::ofstream out(name, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// what() of `e` and of every exception nested in it, one per line.
inline std::string ChainText(const std::exception& e) {
  std::string text = e.what();
  try {
    std::rethrow_if_nested(e);
  } catch (const std::exception& inner) {
    text += '\n';
    text.append(ChainText(inner));
  } catch (...) {
  }
  return text;
}

// Runs `call`, expecting an exception of type E whose chain of messages
// contains `fragment`; returns the chain.
template <typename E = std::exception>
std::string ExpectFailure(const std::function<void()>& call, const std::string& fragment) {
  try {
    call();
  } catch (const std::exception& e) {
    const std::string chain = ChainText(e);
    EXPECT_NE(dynamic_cast<const E*>(&e), nullptr) << "unexpected exception type: " << chain;
    EXPECT_NE(chain.find(fragment), std::string::npos)
        << "chain: " << chain << "\nwanted: " << fragment;
    return chain;
  }
  ADD_FAILURE() << "no exception; wanted: " << fragment;
  return "";
}

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

// Runs python with numpy and scipy on `script`; returns its exit status.
inline int RunPython(const TempDir& dir, const std::string& script) {
  const std::string script_file = dir.File("script.py");
  WriteFileBytes(script_file, script);
  const std::string command = std::string(VELMOR_TEST_PYTHON) + " " + script_file + " > " +
                              dir.File("python.log") + " 2>&1";
  const int status = std::system(command.c_str());
  if (status != 0) ADD_FAILURE() << "python failed:\n" << ReadFileBytes(dir.File("python.log"));
  return status;
}

}  // namespace velmor::matrixio::testing

#endif  // VELMOR_TESTS_IO_IO_TEST_SUPPORT_H_
