#include "base/number.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>

namespace base {
namespace {

constexpr std::string_view WHITE_BEFORE_NUMBER = " \t\n\v\f\r";

struct Digits {
  bool negative;
  bool fits;
  uint64_t magnitude;
};

std::optional<Digits> TakeDigits(std::string_view* rest) {
  rest->remove_prefix(std::min(rest->find_first_not_of(WHITE_BEFORE_NUMBER), rest->size()));
  Digits digits{};
  digits.negative = rest->starts_with('-');
  if (digits.negative || rest->starts_with('+')) rest->remove_prefix(1);
  const auto [number_end, number_error] =
      std::from_chars(rest->data(), rest->data() + rest->size(), digits.magnitude);
  if (number_error == std::errc::invalid_argument) return std::nullopt;
  digits.fits = number_error == std::errc();
  rest->remove_prefix(static_cast<size_t>(number_end - rest->data()));
  return digits;
}

}  // namespace

int64_t LeadingNumber(std::string_view text) {
  int64_t number = 0;
  TakeSigned(&text, &number);
  return number;
}

bool TakeSigned(std::string_view* rest, int64_t* number) {
  constexpr uint64_t TOP = std::numeric_limits<int64_t>::max();
  const auto digits = TakeDigits(rest);
  if (!digits) return false;
  const uint64_t bound = digits->negative ? TOP + 1 : TOP;
  const uint64_t magnitude = digits->fits ? std::min(digits->magnitude, bound) : bound;
  *number = static_cast<int64_t>(digits->negative ? 0 - magnitude : magnitude);
  return true;
}

bool TakeUnsigned(std::string_view* rest, uint64_t* number) {
  const auto digits = TakeDigits(rest);
  if (!digits) return false;
  *number = digits->negative ? 0 - digits->magnitude : digits->magnitude;
  if (!digits->fits) *number = std::numeric_limits<uint64_t>::max();
  return true;
}

}  // namespace base
