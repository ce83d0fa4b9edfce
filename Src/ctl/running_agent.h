// Finds the agents that run on this host.
#ifndef CTL_RUNNING_AGENT_H
#define CTL_RUNNING_AGENT_H

#include <optional>
#include <string>
#include <vector>

#include "ctl/process_table.h"

namespace ctl {

// The configuration file in the words of an agent's command line; the last one counts, as for the agent.
// Empty when there is none. Uses getopt_long(3): only one thread may call it at a time.
std::string ConfigFileIn(std::vector<std::string> words);

struct RunningAgent {
  ProcessRow process;
  std::string config;  // absolute if the folder in which it was started could be read; empty: not known
};

// Every process whose program is the agent. Where the program may not be seen, the process's name or first
// word decides.
std::vector<RunningAgent> FindAgents(const std::string& proc = "/proc");
// One that runs on this configuration.
std::optional<RunningAgent> AgentOn(const std::string& config, const std::string& proc = "/proc");
// The one among a process's ancestors, when there is one.
std::optional<RunningAgent> AgentAbove(pid_t pid, const std::string& proc = "/proc");

}  // namespace ctl

#endif
