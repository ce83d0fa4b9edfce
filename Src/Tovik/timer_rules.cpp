#include "Tovik/timer_rules.h"

#include <sys/stat.h>

#include <cstring>

namespace {

constexpr int64_t SHORTEST_HANG_PAUSE = 60;

}  // namespace

int64_t HangPause(int64_t hangTime) {
  return hangTime >= SHORTEST_HANG_PAUSE ? hangTime : hangTime + SHORTEST_HANG_PAUSE;
}

bool IsTimeOfDay(const char* text) {
  return std::strchr(text, ':') != nullptr;
}

bool ErrorCheckDue(int minute, int64_t period, ErrorCheckState* state) {
  if (minute % period == 0 && state->succeeded == 0 && minute == state->lastMinute) return true;
  if (minute != state->lastMinute) {
    state->succeeded = 0;
    state->lastMinute = minute;
  }
  return false;
}

double NewerBy(std::optional<time_t> now, time_t atStart) {
  return now ? std::difftime(*now, atStart) : 0.0;
}

std::optional<time_t> ModificationTime(const char* path) {
  struct stat status {};
  if (::stat(path, &status) != 0) return std::nullopt;
  std::tm local{};
  localtime_r(&status.st_mtime, &local);
  return std::mktime(&local);
}
