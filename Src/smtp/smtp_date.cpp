#include "smtp/smtp_date.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::array DAYS = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array MONTHS = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr int DATE_LENGTH = 31;

bool IsIndex(int index, size_t size) {
  return index >= 0 && static_cast<size_t>(index) < size;
}

}  // namespace

int smtp_date_format(const tm& local, long offset, char* destination) {
  if (!IsIndex(local.tm_wday, DAYS.size()) || !IsIndex(local.tm_mon, MONTHS.size())) return -1;
  std::array<char, DATE_LENGTH + 1> text{};
  const int length = std::snprintf(text.data(), text.size(), "%s, %02d %s %d %02d:%02d:%02d %0+5ld",
                                   DAYS[static_cast<size_t>(local.tm_wday)], local.tm_mday,
                                   MONTHS[static_cast<size_t>(local.tm_mon)], local.tm_year + 1900,
                                   local.tm_hour, local.tm_min, local.tm_sec, offset / 3600 * 100);
  if (length != DATE_LENGTH) return -1;
  std::memcpy(destination, text.data(), text.size());
  return 0;
}

int smtp_date_rfc_2822(char* destination) {
  const time_t now = std::time(nullptr);
  tm local{};
  tm utc{};
  if (now == -1 || ::localtime_r(&now, &local) == nullptr || ::gmtime_r(&now, &utc) == nullptr) return -1;
  // Both times go to mktime unchanged, with their own tm_isdst. So the zone does not include summer time (see
  // the header).
  tm localAgain = local;
  const time_t here = std::mktime(&localAgain);
  const time_t there = std::mktime(&utc);
  if (here == -1 || there == -1) return -1;
  return smtp_date_format(local, static_cast<long>(here - there), destination);
}
