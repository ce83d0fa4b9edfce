// What tests say of texts.
#ifndef TESTS_SUPPORT_HAS_H
#define TESTS_SUPPORT_HAS_H

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>
#include <string_view>

namespace support {

// Whether the part occurs in the text. A failed expectation shows both.
inline testing::AssertionResult Has(const std::string& text, std::string_view part) {
  if (text.find(part) != text.npos) return testing::AssertionSuccess() << part << "\n--- is in\n" << text;
  return testing::AssertionFailure() << part << "\n--- is not in\n" << text;
}

// Every first group of a pattern in a text.
inline std::set<std::string> AllMatches(const std::string& text, const char* pattern) {
  const std::regex expression(pattern, std::regex::ECMAScript | std::regex::multiline);
  std::set<std::string> found;
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end; ++match)
    found.insert((*match)[1]);
  return found;
}

}  // namespace support

#endif
