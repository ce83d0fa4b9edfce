// When the timers' checks are due: decisions on times and settings.
#ifndef TOVIK_TIMER_RULES_H
#define TOVIK_TIMER_RULES_H

#include <cstdint>
#include <ctime>
#include <optional>

// Seconds between two hang checks: short periods get a minute more.
int64_t HangPause(int64_t hangTime);

// Whether the result check's time of day is one.
bool IsTimeOfDay(const char* text);

// The error-log check, looked at once a second: the first second of a due minute arms it, the later ones run
// it until it succeeds.
struct ErrorCheckState {
  int succeeded = 1;
  int lastMinute = -1;
};
// True when the check is to be run now; its success goes into state->succeeded. minute 0 to 59, period above
// 0.
bool ErrorCheckDue(int minute, int64_t period, ErrorCheckState* state);

// Seconds by which a file is newer than it was at start-up; 0 for a file without a time.
double NewerBy(std::optional<time_t> now, time_t atStart);

// A file's modification time, taken through local time and back; none when it cannot be examined.
std::optional<time_t> ModificationTime(const char* path);

#endif
