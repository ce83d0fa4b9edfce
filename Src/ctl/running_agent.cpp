#include "ctl/running_agent.h"

#include <getopt.h>

#include "Tovik/process/options.h"
#include "ctl/small_file.h"

namespace ctl {
namespace {

constexpr std::string_view AGENT = "DunraSTT_Admin";
constexpr size_t SHORT_NAME = 15;
constexpr int MAX_ANCESTORS = 16;
constexpr std::string_view FOLDER = "PWD=";

std::string_view LastPart(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

std::string ProgramOf(pid_t pid, const std::string& proc) {
  return LinkTarget(ProcFile(pid, "exe", proc));
}

// After an update: "DunraSTT_Admin (deleted)".
bool IsOther(const std::string& program) {
  return !program.empty() && !LastPart(program).starts_with(AGENT);
}

// By its program; by its names where that is another user's business.
bool IsAgent(const ProcessRow& row, const std::string& program, const std::string& proc) {
  if (row.Zombie() || IsOther(program)) return false;
  if (!program.empty() || row.name == AGENT.substr(0, SHORT_NAME)) return true;
  const std::vector<std::string> words = ReadTexts(row.pid, "cmdline", proc);
  return !words.empty() && LastPart(words[0]) == AGENT;
}

// The folder in which an agent was started, from its environment: it changes to its program's folder later.
std::string StartFolder(pid_t pid, const std::string& proc) {
  for (const std::string& variable : ReadTexts(pid, "environ", proc)) {
    if (variable.starts_with(FOLDER)) return variable.substr(FOLDER.size());
  }
  return LinkTarget(ProcFile(pid, "cwd", proc));
}

RunningAgent Describe(const ProcessRow& row, const std::string& proc) {
  std::string file = ConfigFileIn(ReadTexts(row.pid, "cmdline", proc));
  if (!file.empty() && file[0] != '/') {
    const std::string folder = StartFolder(row.pid, proc);
    if (!folder.empty()) file = folder + "/" + file;
  }
  return {row, file};
}

}  // namespace

std::string ConfigFileIn(std::vector<std::string> words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  std::string file;
  optind = 0;
  opterr = 0;
  int letter = 0;
  while ((letter = getopt_long(static_cast<int>(words.size()), pointers.data(), AGENT_SHORT_OPTIONS,
                               AGENT_LONG_OPTIONS, nullptr)) != -1) {
    if (letter == 'f') file = optarg;
  }
  return file;
}

std::vector<RunningAgent> FindAgents(const std::string& proc) {
  std::vector<RunningAgent> agents;
  VisitProcessIds(
      [&](pid_t pid) {
        const std::string program = ProgramOf(pid, proc);
        if (IsOther(program)) return true;  // nearly all: no more is read of them
        const auto row = ReadProcess(pid, proc);
        if (row && IsAgent(*row, program, proc)) agents.push_back(Describe(*row, proc));
        return true;
      },
      proc);
  return agents;
}

std::optional<RunningAgent> AgentOn(const std::string& config, const std::string& proc) {
  for (const RunningAgent& agent : FindAgents(proc)) {
    if (SameFile(agent.config, config)) return agent;
  }
  return std::nullopt;
}

std::optional<RunningAgent> AgentAbove(pid_t pid, const std::string& proc) {
  for (int i = 0; i < MAX_ANCESTORS && pid > 1; ++i) {
    const auto row = ReadProcess(pid, proc);
    if (!row) return std::nullopt;
    if (IsAgent(*row, ProgramOf(pid, proc), proc)) return Describe(*row, proc);
    pid = row->parent;
  }
  return std::nullopt;
}

}  // namespace ctl
