#include "ctl/agent_config.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Tovik/config/config.h"
#include "Tovik/config/config_line.h"
#include "base/format.h"
#include "base/unique_handles.h"
#include "ctl/running_agent.h"
#include "ctl/text.h"
#include "utils/trace_log.h"

namespace ctl {
namespace {

constexpr int LINE_SIZE = 1024;
constexpr size_t PATH_SIZE = 4096;
constexpr const char* RECORD_KEY = "HISTORY_PATH";

// The value of a key that the agent does not know; empty when it is missing. Lines are read as the agent
// reads them.
std::string ToolKey(const std::string& path, const char* key) {
  const base::UniqueFile file(std::fopen(path.c_str(), "rbe"));
  ConfigLine parser;
  std::string value;
  char line[LINE_SIZE];
  while (file && std::fgets(line, sizeof line, file.get()) != nullptr) {
    if (parser.Take(line) && parser.Key() == key) value = parser.Value();
  }
  return value == "\n" ? "" : value;
}

std::string RecordFolder(const std::string& file) {
  const std::string value = ToolKey(file, RECORD_KEY);
  if (value.empty()) return DEFAULT_RECORD_FOLDER;
  char path[PATH_SIZE];
  base::CopyText(path, sizeof path, value);
  FullPath(m_sz_base_path, path, sizeof path);
  return path;
}

AgentChecks Checks(const SEND_INFO& info) {
  AgentChecks checks;
  checks.agent = m_sz_watchdog_name;
  checks.agent_pid_file = m_sz_adm_pid_file;
  checks.engine_pid_file = m_sz_svc_pid_file;
  checks.processes = m_restart_check != 0;
  checks.period = m_restart_period;
  checks.traces = m_txt_save != 0 && m_log_level >= TRACE_INFO;
  checks.hang = m_hang_save_flag != 0;
  if (m_send_email_used != 0 || m_send_webhook_used != 0) checks.hang_alarm = m_hang_alarm;
  checks.cpu_limit = info.cpu_over_value;
  checks.memory_limit = info.mem_over_value;
  checks.channel_limit = info.ch_over_value;
  for (int64_t i = 0; i < info.server_count; ++i) {
    const SVC_SERVER& server = info.servers[i];
    checks.servers.push_back(std::string(server.address) + ":" + std::to_string(server.port));
  }
  return checks;
}

// The one file that all of them were given.
std::string FileOf(const std::vector<RunningAgent>& agents, std::string* complaint) {
  std::string file;
  for (const RunningAgent& agent : agents) {
    if (agent.config.empty() || agent.config == file) continue;
    if (!file.empty()) {
      *complaint = "agents run on several configurations, " + Shown(file) + " and " + Shown(agent.config) +
                   ": say which with -f";
      return {};
    }
    file = agent.config;
  }
  return file.empty() ? DEFAULT_CONFIG : file;
}

}  // namespace

std::string ChooseConfigFile(const std::string& given, pid_t self, std::string* complaint) {
  if (!given.empty()) return given;
  const auto above = AgentAbove(self);
  if (above && !above->config.empty()) return above->config;
  return FileOf(FindAgents(), complaint);
}

std::optional<AgentConfig> LoadAgentConfig(const std::string& file, std::string* complaint) {
  static SEND_INFO info;
  gSendInfo = &info;
  base::CopyText(m_sz_configfile, sizeof m_sz_configfile, file);
  if (ReadCfg() != 1) {
    *complaint = Shown(file) + ": " + std::strerror(errno);
    return std::nullopt;
  }
  AgentConfig config;
  config.file = ConfigFileName(file);
  config.process = m_sz_proc_name;
  config.base = m_sz_base_path;
  config.shell_file = m_sz_shell_file;
  config.shell_method = m_sz_shell_method;
  config.watch_path = m_sz_txt_path;
  config.hang_path = m_hang_path;
  config.engine_path = m_sz_svc_txt_path;
  config.port = m_PROC_PORT;
  config.host_in_names = m_log_hostname_inc_flag != 0;
  config.record_folder = RecordFolder(config.file);
  config.checks = Checks(info);
  return config;
}

std::optional<AgentConfig> FindAgentConfig(const std::string& given, pid_t self, std::string* complaint) {
  const std::string file = ChooseConfigFile(given, self, complaint);
  return file.empty() ? std::nullopt : LoadAgentConfig(file, complaint);
}

std::optional<AgentConfig> FindAgentConfig(const std::string& given, std::string* complaint) {
  return FindAgentConfig(given, ::getpid(), complaint);
}

}  // namespace ctl
