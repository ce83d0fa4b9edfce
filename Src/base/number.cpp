#include "base/number.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace base {

int64_t LeadingNumber(std::string_view text) {
  constexpr std::string_view WHITE = " \t\n\v\f\r";
  text.remove_prefix(std::min(text.find_first_not_of(WHITE), text.size()));
  const bool negative = text.starts_with('-');
  if (text.starts_with('+')) text.remove_prefix(1);
  // from_chars takes a minus, no plus, and neither twice.
  if (text.starts_with('-') && !negative) return 0;
  int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc::result_out_of_range) return number;
  return negative ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
}

}  // namespace base
