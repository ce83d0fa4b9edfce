// The helper of a start, a process of its own: it decides whether the start is held, gathers evidence and
// writes the record. The start waits for its answer for a limited time, and goes on without one.
#ifndef CTL_START_HELPER_H
#define CTL_START_HELPER_H

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "ctl/backoff.h"

namespace ctl {

inline constexpr int64_t EVIDENCE_LIMIT_MS = 2000;
// The limit for evidence, and a second for the rest. Whatever hangs, the engine is started after this.
inline constexpr int64_t HELPER_LIMIT_MS = EVIDENCE_LIMIT_MS + 1000;

struct StartPlan {
  std::string config;  // -f, or empty
  BackoffRule backoff;
  bool now = false;   // --now: no back-off
  pid_t starter = 0;  // the process that will become the command
};

// The helper's answers, one byte on the channel. When the channel ends without an answer, the engine is
// started.
enum class Answer : char { START = 's', HELD = 'h', BACK = 'b' };

// The starter sends two int on the channel: RUNNING before it runs the command, then, if it learns it, the
// command's wait status.
inline constexpr int RUNNING = -1;

// Runs the helper; channel is a socket to the starter. After START it leaves a process behind that listens to
// the starter, watches the start and ends within a minute.
[[noreturn]] void RunStartHelper(const StartPlan& plan, int channel);

}  // namespace ctl

#endif
