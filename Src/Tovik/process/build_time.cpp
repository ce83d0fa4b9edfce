#include "Tovik/process/build_time.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

constexpr const char* BUILD_DATE = "May  4 2023";
constexpr const char* BUILD_TIME = "12:26:47";
constexpr std::array<std::string_view, 12> MONTHS = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Returns 1 to 12. Any other name means a broken build and ends the process.
int MonthNumber(std::string_view name) {
  const auto* month = std::find(MONTHS.begin(), MONTHS.end(), name);
  if (month == MONTHS.end()) std::exit(-1);
  return static_cast<int>(month - MONTHS.begin()) + 1;
}

}  // namespace

time_t time_when_compiled() {
  std::array<char, 4> month{};
  std::tm when{};
  std::sscanf(BUILD_DATE, "%3s %d %d", month.data(), &when.tm_mday, &when.tm_year);
  std::sscanf(BUILD_TIME, "%d:%d:%d", &when.tm_hour, &when.tm_min, &when.tm_sec);
  when.tm_mon = MonthNumber(month.data()) - 1;
  when.tm_year -= 1900;
  when.tm_hour -= 1;
  return std::mktime(&when);
}
