// Why an engine died, in one sentence, from what was found.
#ifndef CTL_VERDICT_H
#define CTL_VERDICT_H

#include <cstdint>
#include <optional>
#include <string>

#include "ctl/core_file.h"
#include "ctl/memory_group.h"
#include "ctl/restart_state.h"

namespace ctl {

// What the service manager says of an engine that is its unit.
struct UnitWord {
  std::string unit;
  std::string result;  // "oom-kill", "core-dump", "signal", "exit-code", "success" ...
  int status = 0;      // the exit status, or the signal's number
};
// From the output of "systemctl show" with the properties Result and ExecMainStatus; nothing without them.
std::optional<UnitWord> ParseUnitWord(const std::string& unit, const std::string& text);

struct DeathFacts {
  KillCounters before;  // of the last record
  KillCounters now;
  std::optional<UnitWord> unit;
  std::optional<CoreFound> core;
  EngineSeen seen;  // as the last record saw it alive
  std::optional<AcceptQueue> queue;
};

// "killed for want of memory (...)", "ended by SIGSEGV, core in ...", "not known". Never a guess: a counter
// that is not the engine's own group's, or a signal without a core, leave it not known, and are told behind
// that.
std::string Verdict(const DeathFacts& facts);

}  // namespace ctl

#endif
