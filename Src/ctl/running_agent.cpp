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

bool IsAgent(const ProcessRow& row, const std::string& proc) {
  if (row.Zombie()) return false;
  const std::string program = LinkTarget(Folder(row.pid, proc) + "exe");
  // After an update it reads "DunraSTT_Admin (deleted)".
  if (!program.empty()) return LastPart(program).starts_with(AGENT);
  if (row.name == AGENT.substr(0, SHORT_NAME)) return true;
  const std::vector<std::string> words = ReadCommandLine(row.pid, proc);
  return !words.empty() && LastPart(words[0]) == AGENT;
}

// The folder in which an agent was started, from its environment: it changes to its program's folder later.
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
  VisitProcesses(
      [&](const ProcessRow& row) {
        if (IsAgent(row, proc)) agents.push_back(Describe(row, proc));
        return true;
      },
      proc);
  return agents;
}

std::optional<RunningAgent> AgentAbove(pid_t pid, const std::string& proc) {
  for (int i = 0; i < MAX_ANCESTORS && pid > 1; ++i) {
    const auto row = ReadProcess(pid, proc);
    if (!row) return std::nullopt;
    if (IsAgent(*row, proc)) return Describe(*row, proc);
    pid = row->parent;
  }
  return std::nullopt;
}

}  // namespace ctl
