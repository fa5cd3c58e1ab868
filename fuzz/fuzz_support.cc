#include "fuzz/fuzz_support.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace velmor::fuzz {
namespace {

std::string& InputName() {
  static std::string name;
  return name;
}

void RemoveScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(ScratchFolder(), ignored);
}

}  // namespace

uint8_t InputBytes::Byte() {
  if (size_ == 0) return 0;
  --size_;
  return *data_++;
}

uint32_t InputBytes::Between(uint32_t low, uint32_t high) {
  const uint32_t raw = static_cast<uint32_t>(Byte()) | (static_cast<uint32_t>(Byte()) << 8);
  const uint64_t range = static_cast<uint64_t>(high) - low + 1;
  return low + static_cast<uint32_t>(raw % range);
}

std::string InputBytes::UntilNul() {
  const void* nul = std::memchr(data_, '\0', size_);
  const std::size_t length =
      nul != nullptr ? static_cast<std::size_t>(static_cast<const uint8_t*>(nul) - data_) : size_;
  std::string text(reinterpret_cast<const char*>(data_), length);
  const std::size_t used = nul != nullptr ? length + 1 : length;
  data_ += used;
  size_ -= used;
  return text;
}

std::string InputBytes::Rest() {
  std::string text(reinterpret_cast<const char*>(data_), size_);
  data_ += size_;
  size_ = 0;
  return text;
}

const std::string& ScratchFolder() {
  static const std::string folder = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "velmor_fuzz_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      std::perror("mkdtemp");
      std::abort();
    }
    return pattern;
  }();
  static const bool removed_at_exit = std::atexit(&RemoveScratchFolder) == 0;
  (void)removed_at_exit;
  return folder;
}

std::string WriteScratchFile(const std::string& name, const std::string& bytes) {
  const std::string path = ScratchFolder() + "/" + name;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) {
    std::fprintf(stderr, "cannot write the scratch file %s\n", path.c_str());
    std::abort();
  }
  return path;
}

std::string ScratchSubfolder(const std::string& name) {
  const std::string path = ScratchFolder() + "/" + name;
  std::error_code ignored;
  std::filesystem::create_directories(path, ignored);
  return path;
}

void ClearFolder(const std::string& folder) {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
    std::filesystem::remove_all(entry.path(), ignored);
  }
}

void SetInputNameForReports(const std::string& name) { InputName() = name; }

void FailCheck(const char* file, int line, const char* condition, const std::string& detail) {
  std::fprintf(stderr, "%s:%d: harness check failed: %s\n  %s\n  input: %s\n", file, line,
               condition, detail.c_str(),
               InputName().empty() ? "(the fuzzer's current input)" : InputName().c_str());
  std::fflush(stderr);
  std::abort();
}

}  // namespace velmor::fuzz
