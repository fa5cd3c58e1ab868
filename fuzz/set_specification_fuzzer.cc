// Set specification strings: a set is returned or one of the documented
// errors thrown; a set's elements lie in the ground set, RAND(k) draws k of
// them, and a plain list of numbers and ranges gives exactly those numbers.
// A string that names a file (.json, .npy, .txt, .csv) is pointed at a
// scratch file holding the rest of the input.
#include <algorithm>
#include <cctype>
#include <random>
#include <set>
#include <string>

#include "command-line-utils/SetSpecification.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/fuzz_targets.h"
#include "utils/exceptions.h"

namespace velmor::fuzz {
namespace {

std::string Trimmed(const std::string& text) {
  std::size_t b = 0, e = text.size();
  while (b < e && std::isspace(static_cast<unsigned char>(text[b]))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(text[e - 1]))) --e;
  return text.substr(b, e - b);
}

// The file extension the string ends in, lower case, or "".
std::string FileExtension(const std::string& text) {
  for (const char* extension : {".json", ".npy", ".txt", ".csv"}) {
    const std::size_t length = std::char_traits<char>::length(extension);
    if (text.size() < length) continue;
    std::string tail = text.substr(text.size() - length);
    for (char& c : tail) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (tail == extension) return extension;
  }
  return "";
}

// The elements of a list of decimal numbers and ranges a-b (digits only),
// or false when the text is anything else.
bool PlainList(const std::string& text, std::set<long long>& elements) {
  std::size_t begin = 0;
  for (;;) {
    const std::size_t comma = text.find(',', begin);
    const std::string item = Trimmed(text.substr(begin, comma - begin));
    const std::size_t dash = item.find('-');
    const std::string low = item.substr(0, dash);
    const std::string high = dash == std::string::npos ? low : item.substr(dash + 1);
    auto digits = [](const std::string& s) {
      return !s.empty() && s.size() <= 9 &&
             std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    if (!digits(low) || !digits(high) || std::stoll(low) > std::stoll(high)) return false;
    for (long long v = std::stoll(low); v <= std::stoll(high); ++v) {
      elements.insert(v);
      if (elements.size() > (1u << 16)) return false;
    }
    if (comma == std::string::npos) return true;
    begin = comma + 1;
  }
}

}  // namespace

int FuzzSetSpecification(const uint8_t* data, std::size_t size) {
  InputBytes input(data, size);
  const int n = static_cast<int>(input.Between(1, 4096));
  std::string text = input.UntilNul();
  const std::string extension = FileExtension(Trimmed(text));
  if (!extension.empty()) text = WriteScratchFile("set" + extension, input.Rest());

  std::mt19937 engine(12345);
  UnorderedHashSet set;
  bool user_error = false;
  bool parsed = false;
  try {
    set = ParseSetSpecification(text, n, engine, "set-fuzz");
    parsed = true;
  } catch (const exception::CommandLineError&) {
    user_error = true;
  } catch (const exception::InputDataError&) {
    user_error = true;
  }
  VELMOR_FUZZ_CHECK(parsed || user_error, "neither a set nor a user error");
  if (!parsed) return 0;

  VELMOR_FUZZ_CHECK(set.GroundSetSize() == n, "ground-set size");
  for (int e : set) VELMOR_FUZZ_CHECK(e >= 0 && e < n, "an element outside the ground set");
  const std::string trimmed = Trimmed(text);
  if (extension.empty() && trimmed.size() > 6 && trimmed.compare(0, 5, "RAND(") == 0 &&
      trimmed.back() == ')') {
    const std::string amount = trimmed.substr(5, trimmed.size() - 6);
    if (!amount.empty() &&
        std::all_of(amount.begin(), amount.end(), [](char c) { return c >= '0' && c <= '9'; }) &&
        amount.size() <= 9) {
      VELMOR_FUZZ_CHECK(set.size() == std::stoi(amount), "RAND(k) drew another number");
    }
  }
  std::set<long long> listed;
  if (extension.empty() && PlainList(trimmed, listed)) {
    std::set<long long> got(set.begin(), set.end());
    VELMOR_FUZZ_CHECK(got == listed, "a plain list gave other elements");
  }
  return 0;
}

}  // namespace velmor::fuzz

VELMOR_FUZZ_ENTRY_POINT(velmor::fuzz::FuzzSetSpecification)
