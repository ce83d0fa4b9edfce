#include "Tovik/process/build_time.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

constexpr const char* BUILD_DATE = "May  4 2023";
constexpr const char* BUILD_TIME = "12:26:47";
constexpr std::array<std::string_view, 12> BUILD_MONTHS = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                           "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Returns 1 to 12. Any other name means a broken build and ends the process.
int BuildMonthNumber(std::string_view month_name) {
  const auto* build_month = std::find(BUILD_MONTHS.begin(), BUILD_MONTHS.end(), month_name);
  if (build_month == BUILD_MONTHS.end()) std::exit(-1);
  return static_cast<int>(build_month - BUILD_MONTHS.begin()) + 1;
}

}  // namespace

time_t time_when_compiled() {
  std::array<char, 4> build_month{};
  std::tm build_moment{};
  std::sscanf(BUILD_DATE, "%3s %d %d", build_month.data(), &build_moment.tm_mday, &build_moment.tm_year);
  std::sscanf(BUILD_TIME, "%d:%d:%d", &build_moment.tm_hour, &build_moment.tm_min, &build_moment.tm_sec);
  build_moment.tm_mon = BuildMonthNumber(build_month.data()) - 1;
  build_moment.tm_year -= 1900;
  build_moment.tm_hour -= 1;
  return std::mktime(&build_moment);
}
