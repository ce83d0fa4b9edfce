// Decimal numbers at the start of a text. White space and a sign may come before the digits; whatever follows
// the digits is ignored. A number out of range becomes the nearest limit. The locale has no effect.
#ifndef BASE_NUMBER_H
#define BASE_NUMBER_H

#include <cstdint>
#include <string_view>

namespace base {

// Reads a number as atol(3) does; the text needs no terminator. Returns 0 when there is no digit. Cast to
// int, the result is that of atoi(3).
[[nodiscard]] int64_t LeadingNumber(std::string_view number_text);

// Take a number off the front of *number_text, as %ld and %lu of scanf(3) do. Return false when there is no
// digit; white space and sign are then already taken. A negative number read as unsigned becomes its two's
// complement.
bool TakeSigned(std::string_view* number_text, int64_t* number);
bool TakeUnsigned(std::string_view* number_text, uint64_t* number);

}  // namespace base

#endif
