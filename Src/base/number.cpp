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

std::optional<Digits> TakeDigits(std::string_view* number_text) {
  number_text->remove_prefix(
      std::min(number_text->find_first_not_of(WHITE_BEFORE_NUMBER), number_text->size()));
  Digits digits{};
  digits.negative = number_text->starts_with('-');
  if (digits.negative || number_text->starts_with('+')) number_text->remove_prefix(1);
  const auto [number_end, number_error] =
      std::from_chars(number_text->data(), number_text->data() + number_text->size(), digits.magnitude);
  if (number_error == std::errc::invalid_argument) return std::nullopt;
  digits.fits = number_error == std::errc();
  number_text->remove_prefix(static_cast<size_t>(number_end - number_text->data()));
  return digits;
}

}  // namespace

int64_t LeadingNumber(std::string_view number_text) {
  int64_t number = 0;
  TakeSigned(&number_text, &number);
  return number;
}

bool TakeSigned(std::string_view* number_text, int64_t* number) {
  constexpr uint64_t TOP_NUMBER = std::numeric_limits<int64_t>::max();
  const auto digits = TakeDigits(number_text);
  if (!digits) return false;
  const uint64_t number_bound = digits->negative ? TOP_NUMBER + 1 : TOP_NUMBER;
  const uint64_t magnitude = digits->fits ? std::min(digits->magnitude, number_bound) : number_bound;
  *number = static_cast<int64_t>(digits->negative ? 0 - magnitude : magnitude);
  return true;
}

bool TakeUnsigned(std::string_view* number_text, uint64_t* number) {
  const auto digits = TakeDigits(number_text);
  if (!digits) return false;
  *number = digits->negative ? 0 - digits->magnitude : digits->magnitude;
  if (!digits->fits) *number = std::numeric_limits<uint64_t>::max();
  return true;
}

}  // namespace base
