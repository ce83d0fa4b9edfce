// What one start leaves for the next: the row of starts, the counters, the engine as it was last seen.
#ifndef CTL_RESTART_STATE_H
#define CTL_RESTART_STATE_H

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>

#include "ctl/accept_queue.h"
#include "ctl/backoff.h"
#include "ctl/memory_group.h"
#include "ctl/process_table.h"
#include "ctl/record_folder.h"

namespace ctl {

// An engine that a start, or the watch behind it, saw alive.
struct EngineSeen {
  pid_t pid = 0;  // 0: none was seen
  uint64_t start = 0;
  std::string unit;    // its service; empty: none
  std::string folder;  // its working directory; empty: not known
  time_t wall = 0;     // when
  bool queue_known = false;
  AcceptQueue queue;
};

struct RestartState {
  StartRow row;
  time_t start_wall = 0;  // the last start; 0: none
  KillCounters counters;  // at the last start, of the engine's group once that was seen
  EngineSeen engine;
};

std::string StateText(const RestartState& state);
// What is missing or of the wrong type is as in a new state.
RestartState ParseState(const std::string& text);
// A new one when there is none, or none that can be read.
RestartState ReadState(const RecordFolder& folder);
// Reads it, changes it and writes it, without another process in between (unless that was stopped in it):
// 0, or -1 with errno.
int ChangeState(const RecordFolder& folder, const std::function<void(RestartState* state)>& change);

// Notes an engine that lives: what it is, what waits at its port; of one that was not noted yet also the
// counters of its control group, in place of those of the start.
void NoteEngine(const ProcessRow& engine, int64_t port, RestartState* state);

}  // namespace ctl

#endif
