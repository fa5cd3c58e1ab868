#ifndef VELMOR_FUZZ_FUZZ_SUPPORT_H_
#define VELMOR_FUZZ_FUZZ_SUPPORT_H_

// Helpers shared by the fuzz harnesses: taking parameters off the front of
// the input, a private scratch folder for inputs that must be files, and the
// failure report of a harness check.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

namespace velmor::fuzz {

// Takes bytes off the front of a fuzz input; past the end every read gives 0
// (or an empty text), so any input is a valid parameter set.
class InputBytes {
 public:
  InputBytes(const uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  uint8_t Byte();
  // A value in [low, high] from two bytes.
  uint32_t Between(uint32_t low, uint32_t high);
  // The bytes up to the next NUL (which is consumed) or to the end.
  std::string UntilNul();
  // Everything left.
  std::string Rest();
  bool Empty() const { return size_ == 0; }

 private:
  const uint8_t* data_;
  std::size_t size_;
};

// A folder of this process for inputs that a parser only takes as files
// (removed at exit). Created on first use.
const std::string& ScratchFolder();

// Writes `bytes` to ScratchFolder()/name (replacing it) and returns the path.
std::string WriteScratchFile(const std::string& name, const std::string& bytes);

// Creates (when missing) the folder ScratchFolder()/name and returns its path.
std::string ScratchSubfolder(const std::string& name);

// Removes everything inside `folder`.
void ClearFolder(const std::string& folder);

// Names the input being replayed, for the failure report (the regression
// test sets it; under libFuzzer the fuzzer saves the input itself).
void SetInputNameForReports(const std::string& name);

// Reports a failed harness check with the input's name and aborts, which
// libFuzzer records as a crash with the input saved.
[[noreturn]] void FailCheck(const char* file, int line, const char* condition,
                            const std::string& detail);

// Runs `call`; returns true when it returned and false when it threw a
// std::exception, after calling `on_exception` inside the handler (where
// std::current_exception() is the one thrown). Anything else that leaves
// `call` is not caught.
template <typename Call, typename OnException>
bool Succeeds(Call&& call, OnException&& on_exception) {
  try {
    call();
    return true;
  } catch (const std::exception&) {
    on_exception();
    return false;
  }
}

template <typename Call>
bool Succeeds(Call&& call) {
  return Succeeds(call, [] {});
}

// Calls `check` with a value of each element type the matrix readers take
// (int32_t, float, double): `check` is a generic lambda that reads the type
// from its argument.
template <typename Check>
void ForEachElementType(Check&& check) {
  check(int32_t{});
  check(float{});
  check(double{});
}

// The fuzz input as text.
inline std::string InputText(const uint8_t* data, std::size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size);
}

}  // namespace velmor::fuzz

// Aborts with a report unless `condition` holds.
#define VELMOR_FUZZ_CHECK(condition, detail)                                             \
  do {                                                                                   \
    if (!(condition)) ::velmor::fuzz::FailCheck(__FILE__, __LINE__, #condition, detail); \
  } while (false)

// The libFuzzer entry for a harness function, in the fuzzer executables only.
#ifdef VELMOR_FUZZ_ENTRY
#define VELMOR_FUZZ_ENTRY_POINT(function)                                        \
  extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) { \
    return function(data, size);                                                 \
  }
#else
#define VELMOR_FUZZ_ENTRY_POINT(function)
#endif

#endif  // VELMOR_FUZZ_FUZZ_SUPPORT_H_
