// Texts: printf into a std::string, and bounded copies into fixed buffers.
#ifndef BASE_FORMAT_H
#define BASE_FORMAT_H

#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>

namespace base {

// The formatted text, whole; empty when the format cannot be carried out.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...);
[[gnu::format(printf, 1, 0)]] std::string FormatList(const char* format, va_list arguments);

// Copies a text into a buffer of size bytes (at least 1): cut to what fits, always terminated.
void CopyText(char* buffer, size_t size, std::string_view text);

}  // namespace base

#endif
