#include "base/format.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace base {

std::string FormatList(const char* format, va_list arguments) {
  std::array<char, 512> first;
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(first.data(), first.size(), format, arguments);
  std::string text;
  if (length >= 0 && static_cast<size_t>(length) < first.size()) {
    text.assign(first.data(), static_cast<size_t>(length));
  } else if (length >= 0) {
    text.resize(static_cast<size_t>(length));
    std::vsnprintf(text.data(), text.size() + 1, format, again);
  }
  va_end(again);
  return text;
}

std::string Format(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = FormatList(format, arguments);
  va_end(arguments);
  return text;
}

void CopyText(char* buffer, size_t size, std::string_view text) {
  const size_t length = std::min(text.size(), size - 1);
  std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
}

}  // namespace base
