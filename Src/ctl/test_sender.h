// Sends test alarms by the agent's own senders, each in a process of its own, and records what the peers say.
#ifndef CTL_TEST_SENDER_H
#define CTL_TEST_SENDER_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/unique_handles.h"
#include "ctl/test_outcome.h"

namespace ctl {

struct Trial {
  Channel channel;
  std::string destination;   // as shown
  int64_t server = 0;        // index in the agent's table of servers
  bool start_alarm = false;  // a server gets the real start alarm; false: only an open frame
  // Filled by RunTrials.
  std::vector<Heard> heard;
  bool ended = false;
  double seconds = 0;
};

// Runs them side by side, each for at most so many milliseconds and in this environment ("NAME=VALUE"; empty:
// the caller's); what is under way then is killed. The children die with the caller. The configuration, the
// host's address and the lists of recipients must be there (PrepareRendering).
void RunTrials(std::vector<Trial>* trials, int64_t milliseconds, const std::vector<std::string>& environment);

}  // namespace ctl

#endif
