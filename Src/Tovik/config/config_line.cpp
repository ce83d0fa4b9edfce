#include "Tovik/config/config_line.h"

#include <cstring>
#include <string_view>

namespace {

constexpr const char* WHITE = " \t\n\v\f\r";
constexpr const char* BLANKS = " \t";
constexpr std::string_view COMMENT_STARTS = ";:/";
constexpr std::string_view TRIMMED = " \t\n\r";

}  // namespace

bool ConfigLine::Take(const char* line) {
  if (*line != '\0' && COMMENT_STARTS.find(*line) != std::string_view::npos) return false;
  const char* key = line + std::strspn(line, WHITE);
  const size_t length = std::strcspn(key, WHITE);
  if (length == 0) return false;
  key_.assign(key, length);
  const char* value = key + length;
  value += std::strspn(value, BLANKS);
  if (*value != '\0') value_ = value;
  TrimValue(&value_);
  return true;
}

void TrimValue(std::string* value) {
  size_t counter = 1;
  while (value->size() > counter && TRIMMED.find(value->back()) != std::string_view::npos) {
    value->pop_back();
    ++counter;
  }
}

std::string ConfigFileName(const std::string& name) {
  std::string result;
  bool named = false;
  for (size_t i = 0; i < name.size(); ++i) {
    const char next = name[i] == '%' && i + 1 < name.size() ? name[i + 1] : '\0';
    if (next == '%') {
      result += '%';
      ++i;
    } else if (next == 's' && !named) {
      result += name;
      named = true;
      ++i;
    } else {
      result += name[i];
    }
  }
  return result;
}
