// The agent that runs on this host, as its process tells.
#ifndef CTL_RUNNING_AGENT_H
#define CTL_RUNNING_AGENT_H

#include <optional>
#include <string>
#include <vector>

#include "ctl/process_table.h"

namespace ctl {

// The configuration file in an agent's words (the last one counts, as for the agent); empty when there is
// none. Uses getopt_long(3), so one thread at a time.
std::string ConfigFileIn(std::vector<std::string> words);

struct RunningAgent {
  ProcessRow process;
  std::string config;  // absolute where the agent's own folder could be read; empty when not known
};

// Every process whose program is the agent; of one whose program may not be seen, its name or first word
// tells.
std::vector<RunningAgent> FindAgents(const std::string& proc = "/proc");
// One that runs on this configuration.
std::optional<RunningAgent> AgentOn(const std::string& config, const std::string& proc = "/proc");
// The one among a process's ancestors, when there is one.
std::optional<RunningAgent> AgentAbove(pid_t pid, const std::string& proc = "/proc");

}  // namespace ctl

#endif
