// Follows a start: when the command ends and with what status, when the port listens, which process the
// engine is.
#ifndef CTL_START_WATCH_H
#define CTL_START_WATCH_H

#include <string>

#include "base/unique_handles.h"
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
  StartRow before;          // the row before this start: put back when the starter is killed before it runs
                            // the command
};

// Detaches from session, working directory and standard descriptors, and completes the record. Ends the
// process within 60 s.
[[noreturn]] void RunStartWatch(const RecordFolder& folder, WatchPlan plan, int channel);

// The wait status of a process that its parent has reaped, from a pidfd opened before; negative when not
// known. Needs a kernel of 6.15 or later.
int ReapedStatus(int pidfd);
// A wait status as a shell tells it: the exit status, or 128 plus the signal's number.
int ShellStatus(int wait_status);

}  // namespace ctl

#endif
