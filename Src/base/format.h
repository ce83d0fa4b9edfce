// Formatting into a std::string, and bounded copies into fixed buffers.
#ifndef BASE_FORMAT_H
#define BASE_FORMAT_H

#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>

namespace base {

// Return the formatted text at its full length, or an empty text when vsnprintf(3) fails.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...);
[[gnu::format(printf, 1, 0)]] std::string FormatList(const char* format, va_list format_arguments);

// Copies text into a buffer of size bytes (at least 1). Text that does not fit is cut. The result is always
// terminated.
void CopyText(char* buffer, size_t size, std::string_view text);

}  // namespace base

#endif
