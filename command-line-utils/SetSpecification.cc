#include "command-line-utils/SetSpecification.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "io/DenseNumpyFileIOSupport.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"

namespace velmor {
namespace {

using exception::CommandLineError;
using exception::InputDataError;

std::string Trim(const std::string& text) {
  std::size_t b = 0, e = text.size();
  while (b < e && std::isspace(static_cast<unsigned char>(text[b]))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(text[e - 1]))) --e;
  return text.substr(b, e - b);
}

bool EndsWith(const std::string& text, const char* suffix) {
  const std::size_t length = std::char_traits<char>::length(suffix);
  if (text.size() < length) return false;
  for (std::size_t i = 0; i < length; ++i) {
    if (std::tolower(static_cast<unsigned char>(text[text.size() - length + i])) != suffix[i])
      return false;
  }
  return true;
}

// A whole decimal number in 64 bits; false for anything else.
bool ParseWholeNumber(const std::string& text, long long& value) {
  if (text.empty()) return false;
  errno = 0;
  char* end = nullptr;
  value = std::strtoll(text.c_str(), &end, 10);
  return errno == 0 && *end == '\0' && !std::isspace(static_cast<unsigned char>(text[0]));
}

void AddElement(UnorderedHashSet& set, long long v, int n) {
  if (v < 0 || v >= n) {
    VELMOR_THROW(InputDataError, "Set element %lld is outside the ground set [0, %d).", v, n);
  }
  set.insert(static_cast<int>(v));
}

// "0,5,10-19"
void ParseElementList(const std::string& text, int n, UnorderedHashSet& set) {
  std::stringstream items(text);
  std::string item;
  while (std::getline(items, item, ',')) {
    item = Trim(item);
    const std::size_t dash = item.find('-', 1);
    long long low = 0, high = 0;
    if (dash == std::string::npos) {
      if (!ParseWholeNumber(item, low)) {
        VELMOR_THROW(std::invalid_argument, "'%s' is not an element number or a range a-b.",
                     item.c_str());
      }
      AddElement(set, low, n);
      continue;
    }
    if (!ParseWholeNumber(Trim(item.substr(0, dash)), low) ||
        !ParseWholeNumber(Trim(item.substr(dash + 1)), high) || low > high) {
      VELMOR_THROW(std::invalid_argument, "'%s' is not a range a-b with a <= b.", item.c_str());
    }
    AddElement(set, low, n);
    AddElement(set, high, n);
    set.PrepareToInsertTheFollowingNumberOfItems(static_cast<int>(high - low + 1));
    for (long long v = low; v <= high; ++v) set.insert(static_cast<int>(v));
  }
}

// "RAND(k)" or "RAND(p%)": a uniform sample without replacement.
void ParseRandom(const std::string& inside, int n, std::mt19937& engine, UnorderedHashSet& set) {
  std::string amount = Trim(inside);
  long long count = 0;
  if (!amount.empty() && amount.back() == '%') {
    const std::string number = Trim(amount.substr(0, amount.size() - 1));
    char* end = nullptr;
    const double percent = std::strtod(number.c_str(), &end);
    if (number.empty() || *end != '\0' || !(percent >= 0.0 && percent <= 100.0)) {
      VELMOR_THROW(std::invalid_argument, "RAND(%s) needs a percentage between 0%% and 100%%.",
                   inside.c_str());
    }
    count = std::llround(percent / 100.0 * n);
  } else if (!ParseWholeNumber(amount, count) || count < 0) {
    VELMOR_THROW(std::invalid_argument,
                 "RAND(%s) needs a whole number of elements or a percentage.", inside.c_str());
  }
  if (count > n) {
    VELMOR_THROW(InputDataError, "RAND(%s) asks for %lld elements, but the ground set has only %d.",
                 inside.c_str(), count, n);
  }
  // Partial Fisher-Yates shuffle: the first `count` positions are the sample.
  std::vector<int> elements(static_cast<std::size_t>(n));
  std::iota(elements.begin(), elements.end(), 0);
  set.PrepareToInsertTheFollowingNumberOfItems(static_cast<int>(count));
  for (long long i = 0; i < count; ++i) {
    std::uniform_int_distribution<long long> pick(i, n - 1);
    std::swap(elements[static_cast<std::size_t>(i)],
              elements[static_cast<std::size_t>(pick(engine))]);
    set.insert(elements[static_cast<std::size_t>(i)]);
  }
}

void ParseTextFile(const std::string& file_name, int n, UnorderedHashSet& set) {
  std::ifstream in(file_name);
  if (!in) VELMOR_THROW(std::runtime_error, "Can not open set file '%s'.", file_name.c_str());
  std::string line;
  while (std::getline(in, line)) {
    line = line.substr(0, line.find('#'));
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == ',' || c == ';'; }, ' ');
    std::stringstream words(line);
    std::string word;
    while (words >> word) {
      long long v = 0;
      if (!ParseWholeNumber(word, v)) {
        VELMOR_THROW(std::invalid_argument, "'%s' in set file '%s' is not an element number.",
                     word.c_str(), file_name.c_str());
      }
      AddElement(set, v, n);
    }
  }
}

// Integer vectors only: int32 files, and int64 files whose values fit 32 bits.
void ParseNumpyFile(const std::string& file_name, int n, UnorderedHashSet& set) {
  const auto values = matrixio::ReadMatrixFromNumpyFile<int32_t>(file_name);
  for (Eigen::Index i = 0; i < values.rows(); ++i) {
    for (Eigen::Index j = 0; j < values.cols(); ++j) AddElement(set, values(i, j), n);
  }
}

void ParseJsonFile(const std::string& file_name, int n, UnorderedHashSet& set) {
  std::ifstream in(file_name);
  if (!in) VELMOR_THROW(std::runtime_error, "Can not open set file '%s'.", file_name.c_str());
  const nlohmann::json document = nlohmann::json::parse(in, nullptr, false);
  if (document.is_discarded()) {
    VELMOR_THROW(InputDataError, "Set file '%s' is not valid JSON.", file_name.c_str());
  }
  if (!document.is_object() || !document.contains("set") || !document["set"].is_array()) {
    VELMOR_THROW(InputDataError, "Set file '%s' must hold an object with a \"set\" array.",
                 file_name.c_str());
  }
  for (const auto& value : document["set"]) {
    if (!value.is_number_integer()) {
      VELMOR_THROW(InputDataError,
                   "Set file '%s' holds a \"set\" entry that is not a whole number.",
                   file_name.c_str());
    }
    AddElement(set, value.get<long long>(), n);
  }
}

}  // namespace

UnorderedHashSet ParseSetSpecification(const std::string& set_string, int n, std::mt19937& engine,
                                       const std::string& option_name) {
  UnorderedHashSet set(n);
  const std::string text = Trim(set_string);
  if (text.empty()) return set;
  const bool is_file = EndsWith(text, ".json") || EndsWith(text, ".npy") ||
                       EndsWith(text, ".txt") || EndsWith(text, ".csv");
  try {
    if (EndsWith(text, ".json")) {
      ParseJsonFile(text, n, set);
    } else if (EndsWith(text, ".npy")) {
      ParseNumpyFile(text, n, set);
    } else if (EndsWith(text, ".txt") || EndsWith(text, ".csv")) {
      ParseTextFile(text, n, set);
    } else if (text.size() > 5 && text.compare(0, 5, "RAND(") == 0 && text.back() == ')') {
      ParseRandom(text.substr(5, text.size() - 6), n, engine, set);
    } else {
      ParseElementList(text, n, set);
    }
  } catch (const InputDataError&) {
    throw;
  } catch (...) {
    if (is_file) {
      VELMOR_THROW_NESTED(InputDataError, "Problems reading set file '%s' of option '%s'.",
                          text.c_str(), option_name.c_str());
    }
    VELMOR_THROW_NESTED(CommandLineError, "Problems with set specification '%s' of option '%s'.",
                        set_string.c_str(), option_name.c_str());
  }
  return set;
}

}  // namespace velmor
