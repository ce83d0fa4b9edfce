#include "ctl/running_agent.h"

#include <getopt.h>
#include <unistd.h>

#include <array>

#include "Tovik/process/options.h"
#include "ctl/small_file.h"

namespace ctl {
namespace {

constexpr std::string_view AGENT = "DunraSTT_Admin";
constexpr size_t SHORT_NAME = 15;
constexpr int MAX_ANCESTORS = 16;
constexpr size_t ENVIRONMENT_LIMIT = 131072;

std::string Folder(pid_t pid, const std::string& proc) {
  return proc + "/" + std::to_string(pid) + "/";
}

std::string LinkTarget(const std::string& path) {
  std::array<char, 4096> target;
  const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
  return length < 0 ? std::string() : std::string(target.data(), static_cast<size_t>(length));
}

std::string_view LastPart(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

std::string ProgramOf(pid_t pid, const std::string& proc) {
  return LinkTarget(Folder(pid, proc) + "exe");
}

// After an update: "DunraSTT_Admin (deleted)".
bool IsOther(const std::string& program) {
  return !program.empty() && !LastPart(program).starts_with(AGENT);
}

// By its program; by its names where that is another user's business.
bool IsAgent(const ProcessRow& row, const std::string& program, const std::string& proc) {
  if (row.Zombie() || IsOther(program)) return false;
  if (!program.empty() || row.name == AGENT.substr(0, SHORT_NAME)) return true;
  const std::vector<std::string> words = ReadCommandLine(row.pid, proc);
  return !words.empty() && LastPart(words[0]) == AGENT;
}

// The folder in which an agent was started: it goes to its program's own later.
std::string StartFolder(pid_t pid, const std::string& proc) {
  const auto text = ReadSmallFile(Folder(pid, proc) + "environ", ENVIRONMENT_LIMIT);
  for (size_t at = 0; text && at < text->size(); at = text->find('\0', at) + 1) {
    const std::string_view entry(text->c_str() + at);
    if (entry.starts_with("PWD=")) return std::string(entry.substr(4));
    if (text->find('\0', at) == std::string::npos) break;
  }
  return LinkTarget(Folder(pid, proc) + "cwd");
}

RunningAgent Describe(const ProcessRow& row, const std::string& proc) {
  std::string file = ConfigFileIn(ReadCommandLine(row.pid, proc));
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
