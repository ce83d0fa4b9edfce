// Finds the agent and its engine in the process table.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>

#include "ctl/memory_group.h"
#include "ctl/process_table.h"
#include "ctl/running_agent.h"
#include "ctl/small_file.h"
#include "ctl/status_read.h"
#include "ctl/text.h"
#include "sysinfo/process_names.h"

namespace ctl {
namespace {

constexpr size_t TEXT_LIMIT = 16384;
constexpr size_t PASSWORD_LIMIT = 262144;
constexpr size_t MOST_DESCRIPTORS = 2'000'000;
constexpr uint64_t KB = 1024;
constexpr int64_t MS = 1000;

// The number behind "NAME:" in a text of lines.
std::optional<uint64_t> NumberBehind(std::string_view text, std::string_view name) {
  size_t at = text.find(name);
  if (at == text.npos) return std::nullopt;
  at = text.find_first_not_of(" \t", at + name.size());
  uint64_t number = 0;
  if (at == text.npos ||
      std::from_chars(text.data() + at, text.data() + text.size(), number).ec != std::errc())
    return std::nullopt;
  return number;
}

// The user's name, from /etc/passwd only: a directory service may hang.
std::string UserName(uint64_t uid) {
  const std::string text = "\n" + ReadSmallFile("/etc/passwd", PASSWORD_LIMIT).value_or("");
  const size_t end = text.find(":x:" + std::to_string(uid) + ":");
  if (end == text.npos) return "uid " + std::to_string(uid);
  const size_t begin = text.rfind('\n', end) + 1;
  return Shown(text.substr(begin, end - begin));
}

std::optional<uint64_t> CountDescriptors(pid_t pid) {
  const base::UniqueDir folder(::opendir(ProcFile(pid, "fd").c_str()));
  if (!folder) return std::nullopt;
  uint64_t count = 0;
  while (const dirent* entry = ::readdir(folder.get())) {
    count += entry->d_name[0] != '.' ? 1 : 0;
    if (count == MOST_DESCRIPTORS) break;
  }
  return count;
}

ProcessSeen Describe(const ProcessRow& row, const Moment& now) {
  ProcessSeen seen;
  seen.pid = row.pid;
  seen.state = row.state;
  const int64_t tick = std::max<long>(::sysconf(_SC_CLK_TCK), 1);
  seen.start = now.wall - (now.boot_ms / MS - static_cast<int64_t>(row.start) / tick);
  const std::string status = ReadSmallFile(ProcFile(row.pid, "status"), TEXT_LIMIT).value_or("");
  if (const auto uid = NumberBehind(status, "\nUid:")) seen.user = UserName(*uid);
  if (const auto rss = NumberBehind(status, "\nVmRSS:")) seen.rss = *rss * KB;
  seen.threads = NumberBehind(status, "\nThreads:");
  seen.fds = CountDescriptors(row.pid);
  const std::string limits = ReadSmallFile(ProcFile(row.pid, "limits"), TEXT_LIMIT).value_or("");
  seen.fd_limit = NumberBehind(limits, "\nMax open files");
  return seen;
}

std::optional<pid_t> PidFile(const std::string& path) {
  const auto text = ReadSmallFile(path, TEXT_LIMIT);
  const int pid = text ? std::atoi(text->c_str()) : 0;
  return pid > 0 ? std::optional(pid) : std::nullopt;
}

struct Candidates {
  std::vector<ProcessRow> agents;
  std::vector<ProcessRow> engines;
  bool hidden = false;  // others may be hidden
};

Candidates Search(const AgentConfig& config) {
  Candidates found;
  // The host may hide the processes of other users, or only their files.
  found.hidden = ::access("/proc/1/stat", R_OK) != 0;
  const sysinfo::ProcessNames names = sysinfo::ReadProcessNames();
  const pid_t self = ::getpid();
  for (size_t i = 0; i < names.Size(); ++i) {
    const sysinfo::ProcessName process = names[i];
    if (process.name == nullptr || process.pid == self) continue;
    const bool agent = config.checks.agent == process.name;
    const bool engine = config.process == process.name;
    const auto row = agent || engine ? ReadProcess(process.pid) : std::nullopt;
    if (row && agent && !row->Zombie()) found.agents.push_back(*row);
    if (row && engine) found.engines.push_back(*row);
  }
  return found;
}

// True when this agent is known to use another configuration file, as one in a container does.
bool OfAnotherFile(const ProcessRow& row, const std::string& config) {
  const std::string file = ConfigFileIn(ReadTexts(row.pid, "cmdline"));
  if (file.empty() || file[0] != '/') return false;
  std::error_code error;
  const bool same = std::filesystem::equivalent(file, config, error);
  return !error && !same;
}

// The process that the PID file names, else the one that was started first.
const ProcessRow* Choose(const std::vector<ProcessRow>& rows, std::optional<pid_t> pid) {
  const ProcessRow* chosen = nullptr;
  for (const ProcessRow& row : rows) {
    const auto rank = [&](const ProcessRow& one) {
      return std::tuple(one.Zombie(), one.pid != pid.value_or(0), one.start);
    };
    if (chosen == nullptr || rank(row) < rank(*chosen)) chosen = &row;
  }
  return chosen;
}

void SeeAgent(const Candidates& found, const Moment& now, Picture* picture) {
  AgentPicture& agent = picture->agent;
  agent.file_pid = PidFile(picture->config->checks.agent_pid_file);
  std::vector<ProcessRow> rows = found.agents;
  std::erase_if(rows, [&](const ProcessRow& row) { return OfAnotherFile(row, picture->config->file); });
  const ProcessRow* chosen = Choose(rows, agent.file_pid);
  agent.known = chosen != nullptr || (!found.hidden && !picture->config->checks.agent.empty());
  struct stat file {};
  if (chosen != nullptr) {
    agent.process = Describe(*chosen, now);
    if (::stat(picture->config->file.c_str(), &file) == 0) {
      agent.config_time = file.st_mtime;
      agent.config_newer = file.st_mtime > agent.process->start + 1;
    }
  } else if (agent.file_pid) {
    const auto other = ReadProcess(*agent.file_pid);
    if (other) agent.file_name = Shown(other->name);
  }
}

}  // namespace

void SeeProcesses(const Moment& now, Picture* picture) {
  const AgentConfig& config = *picture->config;
  if (config.process.empty() || config.checks.agent.empty())
    picture->not_known.push_back(
        {config.process.empty() ? "the engine" : "the agent",
         config.process.empty() ? "PROC_NAME is missing" : "WATCHDOG_NAME is missing"});
  const Candidates found = Search(config);
  SeeAgent(found, now, picture);
  EnginePicture& engine = picture->engine;
  engine.file_pid = PidFile(config.checks.engine_pid_file);
  const ProcessRow* chosen = Choose(found.engines, engine.file_pid);
  engine.known = chosen != nullptr || (!found.hidden && !config.process.empty());
  if (chosen != nullptr) engine.process = Describe(*chosen, now);
  if (found.hidden && (!picture->agent.known || !engine.known))
    picture->not_known.push_back({"the processes", "/proc hides those of other users (hidepid)"});
  const auto memory = NumberBehind(ReadSmallFile("/proc/meminfo", TEXT_LIMIT).value_or(""), "MemTotal:");
  if (memory) picture->host_memory = *memory * KB;
}

}  // namespace ctl
