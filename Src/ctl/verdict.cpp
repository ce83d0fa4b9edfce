#include "ctl/verdict.h"

#include <cstdlib>
#include <cstring>

#include "ctl/text.h"

namespace ctl {
namespace {

std::string SignalName(int signal) {
  const char* name = ::sigabbrev_np(signal);
  return name == nullptr ? "signal " + std::to_string(signal) : std::string("SIG") + name;
}

// By how much a counter rose; 0 when either value is not known.
int64_t Rise(const std::optional<int64_t>& before, const std::optional<int64_t>& now) {
  return before && now && *now > *before ? *now - *before : 0;
}

std::string ByMemory(const DeathFacts& facts) {
  if (facts.unit && facts.unit->result == "oom-kill")
    return "killed for want of memory, says the service manager of " + Shown(facts.unit->unit);
  const bool same = facts.before.group == facts.now.group && !facts.now.group.empty();
  if (!same || Rise(facts.before.kills, facts.now.kills) == 0) return {};
  return "killed for want of memory (kills in its control group: " + std::to_string(*facts.before.kills) +
         " before, " + std::to_string(*facts.now.kills) + " now)";
}

std::string BySignal(const DeathFacts& facts) {
  if (facts.core)
    return "ended by " + SignalName(facts.core->notes.signal) + ", core in " + Shown(facts.core->path);
  if (facts.unit && facts.unit->result == "core-dump")
    return "ended by " + SignalName(facts.unit->status) + " with a core, says the service manager";
  return {};
}

std::string ByItself(const DeathFacts& facts) {
  if (!facts.unit || (facts.unit->result != "exit-code" && facts.unit->result != "success")) return {};
  return "ended itself with status " + std::to_string(facts.unit->status) + ", says the service manager";
}

// Facts that are worth knowing but prove nothing.
std::string Hints(const DeathFacts& facts) {
  std::string hints;
  if (facts.unit && facts.unit->result == "signal")
    hints += "; the service manager names " + SignalName(facts.unit->status) + ", not who sent it";
  const int64_t others = Rise(facts.before.host, facts.now.host);
  if (others > 0)
    hints += "; " + std::to_string(others) + (others == 1 ? " process" : " processes") +
             " of this host killed for want of memory since the last start";
  if (facts.seen.queue_known && facts.seen.queue.Full())
    hints += "; it took no connections before: " + std::to_string(facts.seen.queue.waiting) +
             " waited, room for " + std::to_string(*facts.seen.queue.room);
  return hints;
}

}  // namespace

std::optional<UnitWord> ParseUnitWord(const std::string& unit, const std::string& text) {
  const auto value = [&](const std::string& key) {
    const size_t at = ("\n" + text).find("\n" + key + "=");
    if (at == std::string::npos) return std::string();
    const size_t begin = at + key.size() + 1;
    return text.substr(begin, text.find('\n', begin) - begin);
  };
  UnitWord word = {unit, value("Result"), std::atoi(value("ExecMainStatus").c_str())};
  return word.result.empty() ? std::nullopt : std::optional(word);
}

std::string Verdict(const DeathFacts& facts) {
  for (const auto rule : {ByMemory, BySignal, ByItself}) {
    std::string answer = rule(facts);
    if (!answer.empty()) return answer;
  }
  return "not known" + Hints(facts);
}

}  // namespace ctl
