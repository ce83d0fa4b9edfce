// When an engine that keeps dying is started again. Counted by the boot's clock, so that a clock that is set
// holds nothing; a reboot forgets everything.
#ifndef CTL_BACKOFF_H
#define CTL_BACKOFF_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ctl {

// All in seconds. After the first start of a row, the next one has to wait for `first`; then twice as long
// after each, up to `last`. An engine that lived for `healthy` ends the row.
struct BackoffRule {
  int64_t first = 10;
  int64_t last = 300;
  int64_t healthy = 600;
};
// "10s..5m"; nothing when it is no such text or its first figure is above the second.
std::optional<BackoffRule> ParseBackoff(std::string_view text);

// What is remembered from one start to the next.
struct StartRow {
  std::string boot_id;
  int64_t last_ms = -1;   // the last start, milliseconds since the boot; below 0: none
  int64_t dead_ms = -1;   // when the engine was first seen dead after it; below 0: not yet
  int64_t first_ms = -1;  // the first start of the row
  int64_t starts = 0;     // starts in the row
};

// The row as it is seen when the engine is found dead: empty after a reboot, a healthy time or a clock that
// makes no sense.
StartRow SeenDead(StartRow row, const BackoffRule& rule, const std::string& boot_id, int64_t now_ms);
// Seconds that a start still has to wait, rounded up, of a row that SeenDead gave; 0: none.
int64_t SecondsToWait(const StartRow& row, const BackoffRule& rule, int64_t now_ms);
// "next try in 80 s: 4 starts in 6 min".
std::string WaitWords(const StartRow& row, int64_t seconds, int64_t now_ms);
// The row with a start now.
StartRow Started(StartRow row, const std::string& boot_id, int64_t now_ms);

}  // namespace ctl

#endif
