// What one start keeps for the next: the row of starts, the counters, the engine as last seen.
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

// An engine that a start, or the watch that follows it, saw alive.
struct EngineSeen {
  pid_t pid = 0;  // 0: none was seen
  uint64_t start = 0;
  std::string unit;    // its service; empty: none
  std::string folder;  // its working directory; empty: not known
  time_t wall = 0;     // when it was seen
  bool queue_known = false;
  AcceptQueue queue;
};

struct RestartState {
  StartRow row;
  time_t start_wall = 0;  // the last start; 0: none
  KillCounters counters;  // as of the last start; of the engine's group once it was seen
  EngineSeen engine;
};

std::string StateText(const RestartState& state);
// Fields that are missing or of the wrong type are as in a new state.
RestartState ParseState(const std::string& text);
// Reads the state. Returns a new one when there is none or it cannot be read.
RestartState ReadState(const RecordFolder& folder);
// Reads the state, changes and writes it, under the folder's lock where that can be had in time. Returns 0,
// or -1 with errno.
int ChangeState(const RecordFolder& folder, const std::function<void(RestartState* state)>& change);

// Puts a living engine into the state: its process and what waits at its port. For one that is not in it yet,
// the counters of its control group also replace those of the start.
void NoteEngine(const ProcessRow& engine, int64_t port, RestartState* state);

}  // namespace ctl

#endif
