// Follows a start: when the command ends and with what, when the port listens, what the engine is.
#ifndef CTL_START_WATCH_H
#define CTL_START_WATCH_H

#include <string>

#include "base/owners.h"
#include "ctl/agent_config.h"
#include "ctl/backoff.h"
#include "ctl/record_folder.h"
#include "ctl/start_record.h"

namespace ctl {

struct WatchPlan {
  AgentConfig config;
  AppendedLine line;
  base::UniqueFd command;   // a pidfd of the process that becomes the command; may be invalid
  bool watch_port = false;  // false: it listened before, or there is none
  int64_t started_ms = 0;   // the start, as the row has it
  StartRow before;          // of starts, as it was: to be put back when the starter is killed before it runs
                            // the command
};

// Detaches from session, folder and standard descriptors, and completes the record within 60 s.
[[noreturn]] void RunStartWatch(const RecordFolder& folder, WatchPlan plan, int channel);

// The wait status of a process that has been reaped by whoever its parent is, from a pidfd opened before:
// kernels since 6.15 tell. Negative: not known.
int ReapedStatus(int pidfd);
// As a shell counts it: the exit status, or 128 and the signal's number.
int ShellStatus(int wait_status);

}  // namespace ctl

#endif
