// Decimal numbers at the start of texts. White space and a sign may stand before the digits; what follows
// them is left. A number that does not fit becomes the nearest end of the range. The locale does not matter.
#ifndef BASE_NUMBER_H
#define BASE_NUMBER_H

#include <cstdint>
#include <string_view>

namespace base {

// As atol(3) on a text that need not be terminated: 0 without a digit. A cast to int gives what atoi(3)
// gives.
[[nodiscard]] int64_t LeadingNumber(std::string_view text);

// As %ld and %lu of scanf(3): takes the number off the front of *rest. False, with white space and sign
// taken, when there is no digit. The negative of an unsigned number is its two's complement.
bool TakeSigned(std::string_view* rest, int64_t* number);
bool TakeUnsigned(std::string_view* rest, uint64_t* number);

}  // namespace base

#endif
