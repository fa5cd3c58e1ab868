#ifndef VELMOR_TESTS_SUPPORT_LOCATED_MESSAGES_H_
#define VELMOR_TESTS_SUPPORT_LOCATED_MESSAGES_H_

// Checks of the library's located messages, "[[@<file>:<line>:<function>]] <text>",
// and of chains of nested exceptions.

#include <gtest/gtest.h>

#include <cctype>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace velmor::testing {

struct LocatedMessage {
  std::string file;
  int line = 0;
  std::string function;
  std::string text;
};

// Nothing when `message` does not have that shape (the line must be digits).
inline std::optional<LocatedMessage> SplitLocated(const std::string& message) {
  if (message.rfind("[[@", 0) != 0) return std::nullopt;
  const std::size_t close = message.find("]] ");
  const std::size_t first = message.find(':', 3);
  if (close == std::string::npos || first == std::string::npos || first > close)
    return std::nullopt;
  const std::size_t second = message.find(':', first + 1);
  if (second == std::string::npos || second > close || second == first + 1) return std::nullopt;
  for (std::size_t i = first + 1; i < second; ++i) {
    if (!std::isdigit(static_cast<unsigned char>(message[i]))) return std::nullopt;
  }
  return LocatedMessage{message.substr(3, first - 3),
                        std::stoi(message.substr(first + 1, second - first - 1)),
                        message.substr(second + 1, close - second - 1), message.substr(close + 3)};
}

// `text` without its "[[@<file>:<line>:<function>]] " prefixes.
inline std::string StripLocations(std::string text) {
  for (std::size_t at = text.find("[[@"); at != std::string::npos; at = text.find("[[@", at)) {
    const std::size_t end = text.find("]] ", at);
    if (end == std::string::npos) break;
    text.erase(at, end + 3 - at);
  }
  return text;
}

// what() of `e` and of every exception nested in it, one per line.
inline std::string ErrorChain(const std::exception& e) {
  std::string text = e.what();
  try {
    std::rethrow_if_nested(e);
  } catch (const std::exception& inner) {
    text += "\n" + ErrorChain(inner);
  } catch (...) {
  }
  return text;
}

// The chain of what `call` throws, without locations; nothing if it returns.
inline std::optional<std::string> FailureOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::exception& e) {
    return StripLocations(ErrorChain(e));
  }
  return std::nullopt;
}

// `call` must throw E with exactly "[[@<file>:<line>:<function>]] <text>"; with
// `nested` given, an exception nested in it must contain `nested`.
template <class E = std::invalid_argument>
void ExpectLocatedError(const std::function<void()>& call, const std::string& file,
                        const std::string& function, const std::string& text,
                        const std::string& nested = "") {
  try {
    call();
    ADD_FAILURE() << "no exception, expected " << function << ": " << text;
  } catch (const E& e) {
    const std::optional<LocatedMessage> parts = SplitLocated(e.what());
    EXPECT_TRUE(parts && parts->file == file && parts->function == function && parts->text == text)
        << "got:      " << e.what() << "\nexpected: [[@" << file << ":<line>:" << function << "]] "
        << text;
    if (!nested.empty()) {
      const std::string chain = ErrorChain(e);
      EXPECT_NE(chain.find(nested, chain.find('\n')), std::string::npos) << chain;
    }
  } catch (const std::exception& e) {
    ADD_FAILURE() << "wrong exception type: " << e.what() << "; expected: " << text;
  }
}

// A call expected to fail with "[[@<file>:<line>:<function>]] <text>".
struct ErrorCase {
  std::function<void()> call;
  std::string function;
  std::string text;
};

template <class E = std::invalid_argument>
void ExpectLocatedErrors(const std::string& file, const std::vector<ErrorCase>& cases) {
  for (const ErrorCase& c : cases) {
    SCOPED_TRACE(c.function + ": " + c.text);
    ExpectLocatedError<E>(c.call, file, c.function, c.text);
  }
}

// `call` must throw E whose chain of messages contains `fragment`; returns the chain.
template <class E = std::exception>
std::string ExpectErrorContaining(const std::function<void()>& call, const std::string& fragment) {
  try {
    call();
  } catch (const std::exception& e) {
    const std::string chain = ErrorChain(e);
    EXPECT_NE(dynamic_cast<const E*>(&e), nullptr) << "unexpected exception type: " << chain;
    EXPECT_NE(chain.find(fragment), std::string::npos)
        << "chain: " << chain << "\nwanted: " << fragment;
    return chain;
  }
  ADD_FAILURE() << "no exception; wanted: " << fragment;
  return "";
}

}  // namespace velmor::testing

#endif  // VELMOR_TESTS_SUPPORT_LOCATED_MESSAGES_H_
