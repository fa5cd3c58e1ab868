#ifndef VELMOR_TESTS_SUPPORT_TEMP_FILES_H_
#define VELMOR_TESTS_SUPPORT_TEMP_FILES_H_

// A fresh temporary folder per use, whole-file reads and writes, and Debian's
// python with numpy and scipy run on a script in such a folder.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace velmor::testing {

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// A folder under the system's temporary folder, removed with its contents.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velmor_XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  // Writes `bytes` to `name` in the folder; returns the path.
  std::string Write(const std::string& name, const std::string& bytes) const {
    WriteFile(File(name), bytes);
    return File(name);
  }

 private:
  std::string path_;
};

// Runs python (numpy as np, scipy.sparse as sp) on `script` in `dir`; a failure
// is a test failure. Returns what the script printed.
inline std::string RunPython(const TempDir& dir, const std::string& script) {
  dir.Write("script.py", "import numpy as np, scipy.sparse as sp, json, os, sys\n" + script + "\n");
  const std::string command =
      "cd '" + dir.path() + "' && " + VELMOR_TEST_PYTHON + " script.py > python.out 2>&1";
  const int status = std::system(command.c_str());
  const std::string output = ReadFile(dir.File("python.out"));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "python failed:\n" << output;
  return output;
}

}  // namespace velmor::testing

#endif  // VELMOR_TESTS_SUPPORT_TEMP_FILES_H_
