// printf into a std::string.
#ifndef BASE_FORMAT_H
#define BASE_FORMAT_H

#include <cstdarg>
#include <string>

namespace base {

// The formatted text, whole; empty when the format cannot be carried out.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...);
[[gnu::format(printf, 1, 0)]] std::string FormatList(const char* format, va_list arguments);

}  // namespace base

#endif
