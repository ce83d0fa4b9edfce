#include "ctl/memory_group.h"

#include <algorithm>
#include <charconv>

#include "ctl/process_table.h"
#include "ctl/small_file.h"

namespace ctl {
namespace {

constexpr size_t TEXT_LIMIT = 16384;

// Calls take(controllers, path) for each "ID:CONTROLLERS:PATH".
template <typename Take>
void EachGroup(std::string_view text, Take take) {
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    const std::string_view line = text.substr(at, end - at);
    at = end + 1;
    const size_t first = line.find(':');
    const size_t second = first == std::string_view::npos ? first : line.find(':', first + 1);
    if (second == std::string_view::npos) continue;
    take(line.substr(first + 1, second - first - 1), line.substr(second + 1));
  }
}

bool Lists(std::string_view controllers, std::string_view name) {
  return ("," + std::string(controllers) + ",").find("," + std::string(name) + ",") != std::string::npos;
}

std::optional<int64_t> Counter(const std::string& path, std::string_view name) {
  const auto text = ReadSmallFile(path, TEXT_LIMIT);
  return text ? CounterIn(*text, name) : std::nullopt;
}

}  // namespace

std::string MemoryGroupFolder(std::string_view text, const std::string& root) {
  std::string first;
  std::string second;
  EachGroup(text, [&](std::string_view controllers, std::string_view path) {
    if (!path.starts_with('/') || path.find("/..") != std::string_view::npos) return;
    if (Lists(controllers, "memory")) first = root + "/memory" + std::string(path);
    if (controllers.empty()) second = root + std::string(path);
  });
  return first.empty() ? second : first;
}

std::string UnitIn(std::string_view text) {
  std::string unit;
  EachGroup(text, [&](std::string_view controllers, std::string_view path) {
    if (!controllers.empty() && controllers != "name=systemd") return;
    const size_t end = path.find(".service");
    if (end == std::string_view::npos) return;
    const size_t begin = path.rfind('/', end) + 1;
    unit = path.substr(begin, end - begin);
    unit += ".service";
  });
  return unit;
}

std::optional<int64_t> CounterIn(std::string_view text, std::string_view name) {
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    std::string_view line = text.substr(at, end - at);
    at = end + 1;
    if (!line.starts_with(name) || line.size() <= name.size() || line[name.size()] != ' ') continue;
    line.remove_prefix(name.size() + 1);
    int64_t number = 0;
    const auto result = std::from_chars(line.data(), line.data() + line.size(), number);
    if (result.ec == std::errc()) return number;
  }
  return std::nullopt;
}

KillCounters ReadKillCounters(const std::string& group, const std::string& proc) {
  KillCounters counters;
  counters.host = Counter(proc + "/vmstat", "oom_kill");
  counters.group = group;
  if (group.empty()) return counters;
  counters.kills = Counter(group + "/memory.events", "oom_kill");
  counters.hits = Counter(group + "/memory.events", "max");
  if (counters.kills) return counters;
  counters.kills = Counter(group + "/memory.oom_control", "oom_kill");
  const auto hits = ReadSmallFile(group + "/memory.failcnt", TEXT_LIMIT);
  if (hits) counters.hits = CounterIn("hits " + *hits, "hits");
  return counters;
}

std::string ReadGroupText(pid_t pid, const std::string& proc) {
  return ReadSmallFile(ProcFile(pid, "cgroup", proc), TEXT_LIMIT).value_or("");
}

}  // namespace ctl
