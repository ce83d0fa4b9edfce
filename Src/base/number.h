// Numbers at the start of texts.
#ifndef BASE_NUMBER_H
#define BASE_NUMBER_H

#include <cstdint>
#include <string_view>

namespace base {

// As atol(3) on a text that need not be terminated: white space, a sign, decimal digits; what follows is
// left. 0 without a digit, the nearest end of the range where the number does not fit. A cast to int gives
// what atoi(3) gives. The locale does not matter.
int64_t LeadingNumber(std::string_view text);

}  // namespace base

#endif
