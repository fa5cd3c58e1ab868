#include "command-line-utils/GreedyAlgorithmChoice.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <string>

#include "utils/error_messages.h"
#include "utils/exceptions.h"

namespace velmor {

namespace {

std::string Trimmed(const std::string& text) {
  std::size_t begin = 0, end = text.size();
  while (begin < end && std::isspace(static_cast<unsigned char>(text[begin]))) ++begin;
  while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1]))) --end;
  return text.substr(begin, end - begin);
}

[[noreturn]] void Refuse(const char* text, const char* option, const std::string& reason) {
  throw exception::CommandLineError(exception::MakeCommandMessage(
      "Invalid greedy algorithm '%s' for option -%s: %s", text, option, reason.c_str()));
}

}  // namespace

GreedyAlgorithmChoice ParseGreedyAlgorithmChoice(const char* text, const char* option) {
  GreedyAlgorithmChoice choice;
  if (text == nullptr) return choice;
  std::string rest = Trimmed(text);
  if (rest.empty()) return choice;

  // :THREADS
  if (const std::size_t colon = rest.rfind(':'); colon != std::string::npos) {
    const std::string count = Trimmed(rest.substr(colon + 1));
    char* end = nullptr;
    const long threads = count.empty() ? -1 : std::strtol(count.c_str(), &end, 10);
    if (count.empty() || *end != '\0' || threads < 1 || threads > 4096) {
      Refuse(text, option, "the thread count after ':' must be an integer from 1 to 4096.");
    }
    choice.threads = static_cast<int>(threads);
    rest = Trimmed(rest.substr(0, colon));
  }
  // (EPSILON)
  bool epsilon_given = false;
  if (const std::size_t open = rest.find('('); open != std::string::npos) {
    if (rest.back() != ')')
      Refuse(text, option, "a '(' must be closed by ')' before the end or ':'.");
    const std::string number = Trimmed(rest.substr(open + 1, rest.size() - open - 2));
    char* end = nullptr;
    choice.epsilon = number.empty() ? std::nan("") : std::strtod(number.c_str(), &end);
    if (number.empty() || *end != '\0' || !std::isfinite(choice.epsilon)) {
      Refuse(text, option, "the epsilon in parentheses must be a number.");
    }
    epsilon_given = true;
    rest = Trimmed(rest.substr(0, open));
  }
  // NAME, or a prefix naming one algorithm alone.
  int found = -1;
  for (int i = 0; i < 4; ++i) {
    const std::string name =
        GreedyAlgorithmChoice::Name(static_cast<GreedyAlgorithmChoice::Kind>(i));
    if (!rest.empty() && name.compare(0, rest.size(), rest) == 0) {
      if (found >= 0) Refuse(text, option, "the name is the start of more than one algorithm.");
      found = i;
    }
  }
  if (found < 0) Refuse(text, option, "expected standard, accelerated, stochastic or threshold.");
  choice.kind = static_cast<GreedyAlgorithmChoice::Kind>(found);
  switch (choice.kind) {
    case GreedyAlgorithmChoice::Kind::kStochastic:
      if (!(choice.epsilon >= 0.0 && choice.epsilon < 1.0)) {
        Refuse(text, option, "the stochastic greedy's epsilon must be in [0, 1).");
      }
      break;
    case GreedyAlgorithmChoice::Kind::kThreshold:
      if (!(choice.epsilon > 0.0 && choice.epsilon < 1.0)) {
        Refuse(text, option, "the threshold greedy's epsilon must be in (0, 1).");
      }
      break;
    default:
      if (epsilon_given) Refuse(text, option, "only stochastic and threshold take an epsilon.");
  }
  return choice;
}

}  // namespace velmor
