// The agent's configuration as most of the tool's commands see it, read by the agent's own parser.
#ifndef CTL_AGENT_CONFIG_H
#define CTL_AGENT_CONFIG_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ctl {

inline constexpr const char* DEFAULT_CONFIG = "/etc/dunrastt/DunraSTT.conf";
inline constexpr const char* DEFAULT_RECORD_FOLDER = "/var/lib/dunrastt";

// What the agent is configured to check, and where it writes what it found.
struct AgentChecks {
  std::string agent;            // WATCHDOG_NAME
  std::string agent_pid_file;   // ADM_PID_FILE
  std::string engine_pid_file;  // SVC_PID_FILE
  bool processes = false;       // RESTART_CHECK
  int64_t period = 0;           // RESTART_CHECK_SEC
  bool traces = false;          // lines of level 3 reach files: WATCH_SAVE, LOG_LEVEL
  bool hang = false;            // HANG_SAVE
  int64_t hang_alarm = 0;       // HANG_ALARM, where mail or chat is on
  int64_t cpu_limit = 0;
  int64_t memory_limit = 0;
  int64_t channel_limit = 0;
  std::vector<std::string> servers;  // "ADDRESS:PORT", in the order of their logs
};

// The values that the agent works with: texts as in the file (code page 949), paths made absolute by the
// agent's rules.
struct AgentConfig {
  std::string file;
  std::string process;       // PROC_NAME
  std::string base;          // BASE_PATH
  std::string shell_file;    // SHELL_FILE
  std::string shell_method;  // SHELL_METHOD
  std::string watch_path;    // WATCH_PATH, a prefix that ends with "/"
  std::string hang_path;     // HANG_PATH
  std::string engine_path;   // TXT_PATH
  int64_t port = 0;          // ASR_PORT
  bool host_in_names = false;
  std::string record_folder = DEFAULT_RECORD_FOLDER;  // HISTORY_PATH, a key of the tool alone
  AgentChecks checks;
};

// The configuration file to use: given; else the file of the agent that is an ancestor of process self; else
// that of the running agent; else DEFAULT_CONFIG. Returns an empty text, with the reason in *complaint, when
// agents run on different files.
std::string ChooseConfigFile(const std::string& given, pid_t self, std::string* complaint);

// Reads the file into the agent's variables and returns what the commands need. Returns nothing, with the
// reason in *complaint, when it cannot be opened. Only one thread may call it at a time. May block as long as
// the file system does.
std::optional<AgentConfig> LoadAgentConfig(const std::string& file, std::string* complaint);

// The two together.
std::optional<AgentConfig> FindAgentConfig(const std::string& given, pid_t self, std::string* complaint);
// The two together, with this process as self.
std::optional<AgentConfig> FindAgentConfig(const std::string& given, std::string* complaint);

}  // namespace ctl

#endif
