#include "ctl/evidence_parts.h"

#include <sys/mman.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <vector>

#include "base/child_process.h"
#include "base/format.h"
#include "base/unique_handles.h"
#include "ctl/agent_files.h"
#include "ctl/clock.h"
#include "ctl/small_file.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr size_t TAIL = 65536;
constexpr size_t ERROR_LINES = 50;
constexpr time_t DAY = 86'400;
constexpr time_t UNRECORDED = 120;
constexpr double GIGABYTE = 1e9;
constexpr const char* MEMORY_FIGURES[] = {"MemTotal:", "MemAvailable:", "SwapTotal:", "SwapFree:"};
constexpr const char* AGENT_FIGURES[] = {"System Channel [", "System Memory [", "System CPU ["};

std::string Line(const std::string& text) {
  return "  " + text + "\n";
}

std::string Number(const std::optional<int64_t>& value) {
  return value ? std::to_string(*value) : "not known";
}

std::vector<std::string_view> Lines(std::string_view text) {
  std::vector<std::string_view> lines;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

std::string FirstLine(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

std::string Kills(const AgentConfig& /*config*/, const RestartState& before, DeathFacts* facts) {
  // The counters of the group in which the engine was last seen; else those of this process's group, which
  // the engine shares when the agent started it.
  KillCounters now = ReadKillCounters(before.counters.group);
  if (!now.kills) now = ReadKillCounters(MemoryGroupFolder(ReadGroupText(::getpid())));
  facts->now = now;
  std::string text = Line("host: " + Number(before.counters.host) + " before, " + Number(now.host) + " now");
  if (!now.group.empty())
    text += Line("control group: " + Number(before.counters.kills) + " before, " + Number(now.kills) +
                 " now; met its limit " + Number(now.hits) + " times; " + Shown(now.group));
  return text;
}

std::string Queue(const AgentConfig& config, const RestartState& before, DeathFacts* facts) {
  if (config.port <= 0 || config.port > UINT16_MAX) return Line("no port in the configuration");
  facts->queue = ReadAcceptQueue(static_cast<uint16_t>(config.port));
  std::string text = Line("now: " + AcceptQueueWords(config.port, facts->queue));
  if (before.engine.queue_known)
    text += Line(IsoTime(before.engine.wall) + ": " + AcceptQueueWords(config.port, before.engine.queue));
  return text;
}

std::string Host(const AgentConfig& /*config*/, const RestartState& /*before*/, DeathFacts* /*facts*/) {
  std::string text;
  const std::string memory = ReadSmallFile("/proc/meminfo").value_or("");
  for (const std::string_view line : Lines(memory)) {
    for (const char* figure : MEMORY_FIGURES) text += line.starts_with(figure) ? Line(Shown(line)) : "";
  }
  text += Line("load: " + Shown(FirstLine(ReadSmallFile("/proc/loadavg").value_or("not known"))));
  return text;
}

std::string Core(const AgentConfig& config, const RestartState& before, DeathFacts* facts) {
  const std::string pattern = ReadSmallFile("/proc/sys/kernel/core_pattern").value_or("");
  std::string folder = CoreFolder(pattern, before.engine.folder.empty() ? config.base : before.engine.folder);
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  if (folder.empty())
    return Line("where this host keeps them is not known: core_pattern is " + Shown(FirstLine(pattern)));
  // Without a record of it, the engine died since the agent's last look, a moment ago.
  const time_t lately = std::time(nullptr) - UNRECORDED;
  time_t since = before.start_wall > 0 ? before.start_wall : lately;
  if (before.engine.pid != 0) since = std::min(since, lately);  // its pid tells, even if the clock was set
  facts->core = FindCore(folder, config.process, before.engine.pid, since);
  if (!facts->core) return Line("none of it in " + Shown(folder) + " since the last start");
  return Line(Shown(facts->core->path) + ", signal " + std::to_string(facts->core->notes.signal));
}

std::string Figures(const AgentConfig& config, const RestartState& /*before*/, DeathFacts* /*facts*/) {
  const time_t now = std::time(nullptr);
  for (const time_t day : {now, now - DAY}) {
    std::string figures = LastFigures(ReadDayFile(MainLog(config, day), TAIL).value_or(""));
    if (!figures.empty()) return figures;
  }
  return Line("none in " + Shown(MainLog(config, now).Path()));
}

std::string Unit(const AgentConfig& /*config*/, const RestartState& before, DeathFacts* facts) {
  if (before.engine.unit.empty()) return Line("the engine was not seen in a unit");
  // The unit in which the engine ran may be the agent's own.
  if (before.engine.unit == UnitIn(ReadGroupText(::getpid()))) return Line("the engine is none of its own");
  if (::access("/run/systemd/system", F_OK) != 0) return Line("no service manager runs");
  const base::UniqueFd out(::memfd_create("unit", MFD_CLOEXEC));
  const int asked =
      base::RunProgram({"systemctl", "show", "--property=Result,ExecMainStatus", "--", before.engine.unit},
                       out.Get(), {"LC_ALL=C"});
  if (asked < 0) return Line("the service manager could not be asked");
  ::lseek(out.Get(), 0, SEEK_SET);
  const std::string text = ReadDescriptor(out.Get(), 4096).value_or("");
  facts->unit = ParseUnitWord(before.engine.unit, text);
  return Line(Shown(before.engine.unit) + ": " + Shown(text));
}

std::string Space(const AgentConfig& config, const RestartState& /*before*/, DeathFacts* /*facts*/) {
  std::string text;
  for (const std::string& folder : {config.watch_path, config.engine_path, config.record_folder}) {
    struct statvfs status {};
    if (::statvfs(folder.c_str(), &status) != 0) {
      text += Line(Shown(folder) + ": " + std::strerror(errno));
      continue;
    }
    const double block = static_cast<double>(status.f_frsize);
    text += Line(base::Format("%s: %.1f of %.1f GB free, %llu of %llu files", Shown(folder).c_str(),
                              static_cast<double>(status.f_bavail) * block / GIGABYTE,
                              static_cast<double>(status.f_blocks) * block / GIGABYTE,
                              static_cast<unsigned long long>(status.f_favail),
                              static_cast<unsigned long long>(status.f_files)));
  }
  return text;
}

std::string Hangs(const AgentConfig& config, const RestartState& /*before*/, DeathFacts* /*facts*/) {
  const auto text = ReadDayFile(HangLog(config, std::time(nullptr)), TAIL);
  return text ? LastLines(*text, 3) : Line("no hang log today");
}

std::string Errors(const AgentConfig& config, const RestartState& /*before*/, DeathFacts* /*facts*/) {
  const DayFile file = EngineErrorLog(config, std::time(nullptr));
  const auto text = ReadDayFile(file, TAIL);
  if (!text) return Line(Shown(file.Path()) + ": " + std::strerror(errno));
  return Line(Shown(file.Path())) + LastLines(*text, ERROR_LINES);
}

constexpr EvidencePart PARTS[] = {
    {"kills for want of memory", Kills},   {"accept queue", Queue},   {"host", Host},      {"core", Core},
    {"the agent's last figures", Figures}, {"service manager", Unit}, {"hang log", Hangs}, {"space", Space},
    {"the engine's last errors", Errors},
};

}  // namespace

std::span<const EvidencePart> EvidenceParts() {
  return PARTS;
}

std::string LastLines(const std::string& text, size_t count) {
  const auto lines = Lines(text);
  std::string result;
  for (size_t i = lines.size() - std::min(count, lines.size()); i < lines.size(); ++i)
    result += Line(Shown(lines[i]));
  return result;
}

std::string LastFigures(const std::string& text) {
  const auto lines = Lines(text);
  std::string result;
  for (const char* figure : AGENT_FIGURES) {
    const auto newest = std::find_if(lines.rbegin(), lines.rend(), [&](std::string_view line) {
      return line.find(figure) != std::string_view::npos;
    });
    if (newest != lines.rend()) result += Line(Shown(*newest));
  }
  return result;
}

}  // namespace ctl
