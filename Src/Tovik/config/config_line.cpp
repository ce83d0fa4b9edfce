#include "Tovik/config/config_line.h"

#include <cstring>
#include <string_view>

namespace {

constexpr const char* AROUND_KEY = " \t\n\v\f\r";
constexpr const char* BEFORE_VALUE = " \t";
constexpr std::string_view COMMENT_STARTS = ";:/";
constexpr std::string_view AFTER_VALUE = " \t\n\r";

}  // namespace

bool ConfigLine::Take(const char* line) {
  if (*line != '\0' && COMMENT_STARTS.find(*line) != std::string_view::npos) return false;
  const char* key = line + std::strspn(line, AROUND_KEY);
  const size_t keyLength = std::strcspn(key, AROUND_KEY);
  if (keyLength == 0) return false;
  key_.assign(key, keyLength);
  const char* value = key + keyLength;
  value += std::strspn(value, BEFORE_VALUE);
  if (*value != '\0') value_ = value;
  TrimValue(&value_);
  return true;
}

void TrimValue(std::string* value) {
  size_t counter = 1;
  while (value->size() > counter && AFTER_VALUE.find(value->back()) != std::string_view::npos) {
    value->pop_back();
    ++counter;
  }
}

std::string ConfigFileName(const std::string& name) {
  std::string fileName;
  bool nameTaken = false;
  for (size_t i = 0; i < name.size(); ++i) {
    const char next = name[i] == '%' && i + 1 < name.size() ? name[i + 1] : '\0';
    if (next == '%') {
      fileName += '%';
      ++i;
    } else if (next == 's' && !nameTaken) {
      fileName += name;
      nameTaken = true;
      ++i;
    } else {
      fileName += name[i];
    }
  }
  return fileName;
}
