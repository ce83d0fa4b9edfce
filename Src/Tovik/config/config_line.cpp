#include "Tovik/config/config_line.h"

#include <cstring>
#include <string_view>

namespace {

constexpr const char* AROUND_LINE_KEY = " \t\n\v\f\r";
constexpr const char* BEFORE_LINE_VALUE = " \t";
constexpr std::string_view COMMENT_LINE_STARTS = ";:/";
constexpr std::string_view AFTER_LINE_VALUE = " \t\n\r";

}  // namespace

bool ConfigLine::Take(const char* configLine) {
  if (*configLine != '\0' && COMMENT_LINE_STARTS.find(*configLine) != std::string_view::npos) return false;
  const char* lineKey = configLine + std::strspn(configLine, AROUND_LINE_KEY);
  const size_t lineKeyLength = std::strcspn(lineKey, AROUND_LINE_KEY);
  if (lineKeyLength == 0) return false;
  lineKey_.assign(lineKey, lineKeyLength);
  const char* lineValue = lineKey + lineKeyLength;
  lineValue += std::strspn(lineValue, BEFORE_LINE_VALUE);
  if (*lineValue != '\0') lineValue_ = lineValue;
  TrimValue(&lineValue_);
  return true;
}

void TrimValue(std::string* lineValue) {
  size_t trimCounter = 1;
  while (lineValue->size() > trimCounter &&
         AFTER_LINE_VALUE.find(lineValue->back()) != std::string_view::npos) {
    lineValue->pop_back();
    ++trimCounter;
  }
}
