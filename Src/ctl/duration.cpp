#include "ctl/duration.h"

#include <algorithm>
#include <charconv>

namespace ctl {
namespace {

constexpr size_t MAX_DIGITS = 9;
constexpr int64_t MINUTE = 60;
constexpr int64_t HOUR = 60 * MINUTE;
constexpr int64_t DAY = 24 * HOUR;
// Up to here durations are told in seconds: "80 s" rather than "1 min".
constexpr int64_t LAST_IN_SECONDS = 2 * MINUTE;

struct Unit {
  char letter;
  int64_t seconds;
};
constexpr Unit UNITS[] = {{'s', 1}, {'m', MINUTE}, {'h', HOUR}};

std::string TwoUnits(int64_t first, const char* one, int64_t second, const char* other) {
  std::string words = std::to_string(first) + one;
  if (second > 0) words += " " + std::to_string(second) + other;
  return words;
}

}  // namespace

std::optional<int64_t> ParseDuration(std::string_view text) {
  if (text.size() < 2 || text.size() > MAX_DIGITS + 1) return std::nullopt;
  const char letter = text.back();
  text.remove_suffix(1);
  if (text.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  for (const Unit& unit : UNITS) {
    if (unit.letter == letter) return number * unit.seconds;
  }
  return std::nullopt;
}

std::string DurationWords(int64_t seconds) {
  seconds = std::max<int64_t>(seconds, 0);
  if (seconds < LAST_IN_SECONDS) return std::to_string(seconds) + " s";
  if (seconds < HOUR) return std::to_string(seconds / MINUTE) + " min";
  if (seconds < DAY) return TwoUnits(seconds / HOUR, " h", seconds % HOUR / MINUTE, " min");
  return TwoUnits(seconds / DAY, " d", seconds % DAY / HOUR, " h");
}

}  // namespace ctl
