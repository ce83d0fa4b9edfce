// What stands between the agent and the engine's start, in a process of its own: whether a start is held,
// evidence, record. The start itself waits for its answer, but not for long, and goes on without one.
#ifndef CTL_START_HELPER_H
#define CTL_START_HELPER_H

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "ctl/backoff.h"

namespace ctl {

inline constexpr int64_t EVIDENCE_LIMIT_MS = 2000;
// Evidence, and what the rest may take on a slow host. Whatever hangs, the engine starts after this.
inline constexpr int64_t HELPER_LIMIT_MS = EVIDENCE_LIMIT_MS + 1000;

struct StartPlan {
  std::string config;  // -f, or empty
  BackoffRule backoff;
  bool now = false;   // no back-off
  pid_t starter = 0;  // the process that will become the command
};

// The answers, a byte each on the channel. Its end without one means: start.
enum class Answer : char { START = 's', HELD = 'h', BACK = 'b' };

// What the starter says on the channel, an int each: that it is about to run the command, then, where it
// knows, the command's wait status.
inline constexpr int RUNNING = -1;

// The helper's whole life; the channel is a socket to the starter. With START it leaves a process behind
// that listens to what the starter says, watches the start and ends within a minute.
[[noreturn]] void RunStartHelper(const StartPlan& plan, int channel);

}  // namespace ctl

#endif
