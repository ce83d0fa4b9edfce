// How long to wait before an engine that keeps dying is started again. Times count from the boot, so setting
// the clock changes nothing, and a reboot starts afresh.
#ifndef CTL_BACKOFF_H
#define CTL_BACKOFF_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ctl {

// All in seconds. The second start of a row waits until `first` after the first one; each later start waits
// twice as long as the one before, up to `last`. An engine that lived for `healthy` ends the row.
struct BackoffRule {
  int64_t first = 10;
  int64_t last = 300;
  int64_t healthy = 600;
};
// Parses "10s..5m". Returns nothing for any other text, and when the first figure is above the second.
std::optional<BackoffRule> ParseBackoff(std::string_view text);

// What is remembered from one start to the next.
struct StartRow {
  std::string boot_id;
  int64_t last_ms = -1;   // the last start, milliseconds since the boot; below 0: none
  int64_t dead_ms = -1;   // when the engine was first seen dead after it; below 0: not yet
  int64_t first_ms = -1;  // the first start of the row
  int64_t starts = 0;     // starts in the row
};

// The row when the engine is found dead. It is empty when the engine lived for the healthy time, after a
// reboot, and when its times make no sense.
StartRow SeenDead(StartRow row, const BackoffRule& rule, const std::string& boot_id, int64_t now_ms);
// Seconds that the next start still has to wait, rounded up; 0: none. row is a result of SeenDead.
int64_t SecondsToWait(const StartRow& row, const BackoffRule& rule, int64_t now_ms);
// "next try in 80 s: 4 starts in 6 min".
std::string WaitWords(const StartRow& row, int64_t seconds, int64_t now_ms);
// The row after one more start, made now.
StartRow Started(StartRow row, const std::string& boot_id, int64_t now_ms);

}  // namespace ctl

#endif
