#include "Tovik/process/start_notices.h"

#include <cstring>

#include "Tovik/config/config.h"
#include "Tovik/notices/notices.h"

namespace {

using notices::Notice;

std::string OwnProcessName(const sysinfo::ProcessNames& processes, pid_t own_pid) {
  for (size_t i = 0; i < processes.Size(); ++i) {
    const sysinfo::ProcessName process = processes[i];
    if (process.pid == own_pid && process.name != nullptr) return process.name;
  }
  return {};
}

bool HidesProcessNames(const sysinfo::ProcessNames& processes) {
  for (size_t i = 0; i < processes.Size(); ++i)
    if (processes[i].name == nullptr) return true;
  return false;
}

void TellBadKey(const char* key, const std::string& why_no_start) {
  notices::Tell<Notice::BAD_KEY>(key, ConfigFileName(m_sz_configfile), why_no_start);
}

}  // namespace

void TellNoConfiguration(int error) {
  if (*m_sz_configfile == '\0')
    return notices::Tell<Notice::NO_START>("no configuration is given (option -f)");
  notices::Tell<Notice::NO_CONFIGURATION>(ConfigFileName(m_sz_configfile), std::strerror(error));
}

void TellNoTimeOfDay() {
  TellBadKey("RESULT_TIME", "is \"" + std::string(m_result_check_time) +
                                "\", no time of day as 07:30, and RESULT_CHECK is set");
}

void TellNotAlone(const sysinfo::ProcessNames& processes, const char* agent_name, pid_t own_pid) {
  if (!notices::On()) return;
  const std::string other_agents = OtherAgents(processes, agent_name, own_pid);
  const std::string own_name = OwnProcessName(processes, own_pid);
  if (*agent_name == '\0') {
    TellBadKey("WATCHDOG_NAME", "has no value");
  } else if (HidesProcessNames(processes)) {
    notices::Tell<Notice::NO_START>("/proc hides the names of processes (hidepid): another agent may run");
  } else if (own_name != agent_name) {
    TellBadKey("WATCHDOG_NAME",
               "is \"" + std::string(agent_name) + "\", and this program is named \"" + own_name + '"');
  } else {
    notices::Tell<Notice::ALREADY_RUNNING>(other_agents, agent_name);
  }
}

void TellNoStart(const char* failed_step, int error) {
  if (notices::On()) notices::Tell<Notice::NO_START>(std::string(failed_step) + ": " + std::strerror(error));
}

std::string OtherAgents(const sysinfo::ProcessNames& processes, const char* agent_name, pid_t own_pid) {
  std::string other_agents;
  for (size_t i = 0; i < processes.Size(); ++i) {
    const sysinfo::ProcessName other_agent = processes[i];
    if (other_agent.name == nullptr || other_agent.pid == own_pid ||
        std::strcmp(other_agent.name, agent_name) != 0)
      continue;
    other_agents += (other_agents.empty() ? "" : ", ") + std::to_string(other_agent.pid);
  }
  return other_agents;
}
