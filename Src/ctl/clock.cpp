#include "ctl/clock.h"

#include <array>

#include "ctl/small_file.h"

namespace ctl {
namespace {

constexpr size_t BOOT_ID_SIZE = 36;

std::string BootId() {
  std::string id = ReadSmallFile("/proc/sys/kernel/random/boot_id", BOOT_ID_SIZE).value_or("");
  return id.size() == BOOT_ID_SIZE ? id : "";
}

}  // namespace

int64_t BootMilliseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

Moment Now() {
  return {std::time(nullptr), BootMilliseconds(), BootId()};
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
std::string LocalTime(time_t wall, const char* format) {
  std::tm local{};
  localtime_r(&wall, &local);
  std::array<char, 64> text{};
  return {text.data(), std::strftime(text.data(), text.size(), format, &local)};
}
#pragma GCC diagnostic pop

std::string IsoTime(time_t wall) {
  const std::string zone = LocalTime(wall, "%z");  // "+0900"
  return LocalTime(wall, "%Y-%m-%dT%H:%M:%S") + zone.substr(0, 3) + ":" +
         (zone.size() > 3 ? zone.substr(3) : "00");
}

std::string WallTime(time_t wall) {
  return LocalTime(wall, "%Y-%m-%d %H:%M:%S");
}

}  // namespace ctl
