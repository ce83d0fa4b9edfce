#include <sys/random.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "smtp/smtp_text.h"

namespace {

constexpr std::array DAYS = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array MONTHS = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr int DATE_LENGTH = 31;
constexpr std::string_view BOUNDARY_START = "mime";
constexpr size_t BOUNDARY_LETTERS = 10;

bool Has(size_t size, int index) {
  return index >= 0 && static_cast<size_t>(index) < size;
}

// Random numbers, or ones made from the clock where the kernel has none yet.
void Fill(std::array<uint32_t, BOUNDARY_LETTERS>& numbers) {
  const ssize_t got = ::getrandom(numbers.data(), sizeof numbers, GRND_NONBLOCK);
  if (got == static_cast<ssize_t>(sizeof numbers)) return;
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  auto state = static_cast<uint64_t>(now.tv_sec) * 1'000'000'000U + static_cast<uint64_t>(now.tv_nsec);
  for (auto& number : numbers) {
    state = state * 6364136223846793005U + 1442695040888963407U;
    number = static_cast<uint32_t>(state >> 33U);
  }
}

}  // namespace

int smtp_date_format(const tm& local, long offset, char* destination) {
  if (!Has(DAYS.size(), local.tm_wday) || !Has(MONTHS.size(), local.tm_mon)) return -1;
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
  // Both go through mktime as they are, so summer time cancels out of neither clock nor zone: see the header.
  tm localAgain = local;
  const time_t here = std::mktime(&localAgain);
  const time_t there = std::mktime(&utc);
  if (here == -1 || there == -1) return -1;
  return smtp_date_format(local, static_cast<long>(here - there), destination);
}

void smtp_gen_mime_boundary(char* destination) {
  std::array<uint32_t, BOUNDARY_LETTERS> numbers{};
  Fill(numbers);
  std::memcpy(destination, BOUNDARY_START.data(), BOUNDARY_START.size());
  char* out = destination + BOUNDARY_START.size();
  for (const uint32_t number : numbers) *out++ = static_cast<char>('A' + number % 26);
  *out = '\0';
}
