#include "base/format.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace base {

std::string FormatList(const char* format, va_list format_arguments) {
  std::array<char, 512> short_format;
  va_list format_arguments_again;
  va_copy(format_arguments_again, format_arguments);
  const int formatted_length =
      std::vsnprintf(short_format.data(), short_format.size(), format, format_arguments);
  std::string formatted;
  if (formatted_length >= 0 && static_cast<size_t>(formatted_length) < short_format.size()) {
    formatted.assign(short_format.data(), static_cast<size_t>(formatted_length));
  } else if (formatted_length >= 0) {
    formatted.resize(static_cast<size_t>(formatted_length));
    std::vsnprintf(formatted.data(), formatted.size() + 1, format, format_arguments_again);
  }
  va_end(format_arguments_again);
  return formatted;
}

std::string Format(const char* format, ...) {
  va_list format_arguments;
  va_start(format_arguments, format);
  std::string formatted = FormatList(format, format_arguments);
  va_end(format_arguments);
  return formatted;
}

void CopyText(char* buffer, size_t size, std::string_view text) {
  const size_t copied = std::min(text.size(), size - 1);
  std::memcpy(buffer, text.data(), copied);
  buffer[copied] = '\0';
}

}  // namespace base
