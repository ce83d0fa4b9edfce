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

// What the service manager says of an engine that runs as a unit.
struct UnitWord {
  std::string unit;
  std::string result;  // "oom-kill", "core-dump", "signal", "exit-code", "success" ...
  int status = 0;      // exit status, or number of the signal
};
// Parses the output of "systemctl show" for the properties Result and ExecMainStatus. Returns nothing when
// Result is missing.
std::optional<UnitWord> ParseUnitWord(const std::string& unit, const std::string& text);

struct DeathFacts {
  KillCounters before;  // as of the last start
  KillCounters now;
  std::optional<UnitWord> unit;
  std::optional<CoreFound> core;
  EngineSeen seen;  // the engine when it was last seen alive
  std::optional<AcceptQueue> queue;
};

// "killed for want of memory (...)", "ended by SIGSEGV, core in ...", "not known". It never guesses: a
// counter of another group than the engine's, or a signal without a core, gives "not known", followed by that
// fact.
std::string Verdict(const DeathFacts& facts);

}  // namespace ctl

#endif
