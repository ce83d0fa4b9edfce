#include "ctl/process_table.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "base/unique_handles.h"
#include "ctl/small_file.h"

namespace ctl {
namespace {

constexpr size_t STAT_LIMIT = 4096;
constexpr size_t TEXTS_LIMIT = 131072;

}  // namespace

std::string ProcFile(pid_t pid, const char* name, const std::string& proc) {
  return proc + "/" + std::to_string(pid) + "/" + name;
}

std::optional<ProcessRow> ParseProcessStat(std::string_view text) {
  const size_t open = text.find('(');
  const size_t close = text.rfind(')');  // the name may hold one, too
  if (open == std::string_view::npos || close == std::string_view::npos || close < open) return std::nullopt;
  ProcessRow row;
  row.pid = std::atoi(std::string(text.substr(0, open)).c_str());
  row.name = text.substr(open + 1, close - open - 1);
  const std::string rest(text.substr(close + 1));
  const int got = std::sscanf(rest.c_str(),
                              " %c %d %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s "
                              "%" SCNu64,
                              &row.state, &row.parent, &row.start);
  if (got != 3 || row.pid <= 0) return std::nullopt;
  return row;
}

std::optional<ProcessRow> ReadProcess(pid_t pid, const std::string& proc) {
  const auto text = ReadSmallFile(ProcFile(pid, "stat", proc), STAT_LIMIT);
  return text ? ParseProcessStat(*text) : std::nullopt;
}

bool VisitProcessIds(const std::function<bool(pid_t)>& visit, const std::string& proc) {
  const base::UniqueDir folder(::opendir(proc.c_str()));
  if (!folder) return false;
  while (const dirent* entry = ::readdir(folder.get())) {
    const int pid = std::atoi(entry->d_name);
    if (pid > 0 && !visit(pid)) break;
  }
  return true;
}

bool VisitProcesses(const std::function<bool(const ProcessRow&)>& visit, const std::string& proc) {
  return VisitProcessIds(
      [&](pid_t pid) {
        const auto row = ReadProcess(pid, proc);
        return !row || visit(*row);
      },
      proc);
}

std::optional<ProcessRow> FindLiving(std::string_view name, const std::string& proc) {
  std::optional<ProcessRow> found;
  VisitProcesses(
      [&](const ProcessRow& row) {
        if (!name.empty() && row.name == name && !row.Zombie() && (!found || row.start < found->start))
          found = row;
        return true;
      },
      proc);
  return found;
}

std::vector<std::string> ReadTexts(pid_t pid, const char* name, const std::string& proc) {
  const auto all = ReadSmallFile(ProcFile(pid, name, proc), TEXTS_LIMIT);
  std::vector<std::string> texts;
  for (size_t at = 0; all && at < all->size();) {
    texts.emplace_back(all->c_str() + at);
    at += texts.back().size() + 1;
  }
  return texts;
}

}  // namespace ctl
