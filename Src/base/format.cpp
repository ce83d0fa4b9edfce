#include "base/format.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace base {

std::string FormatList(const char* format, va_list arguments) {
  std::array<char, 512> short_text;
  va_list second_pass;
  va_copy(second_pass, arguments);
  const int full_length = std::vsnprintf(short_text.data(), short_text.size(), format, arguments);
  std::string formatted;
  if (full_length >= 0 && static_cast<size_t>(full_length) < short_text.size()) {
    formatted.assign(short_text.data(), static_cast<size_t>(full_length));
  } else if (full_length >= 0) {
    formatted.resize(static_cast<size_t>(full_length));
    std::vsnprintf(formatted.data(), formatted.size() + 1, format, second_pass);
  }
  va_end(second_pass);
  return formatted;
}

std::string Format(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string formatted = FormatList(format, arguments);
  va_end(arguments);
  return formatted;
}

void CopyText(char* buffer, size_t size, std::string_view text) {
  const size_t copied = std::min(text.size(), size - 1);
  std::memcpy(buffer, text.data(), copied);
  buffer[copied] = '\0';
}

}  // namespace base
