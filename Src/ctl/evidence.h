// The evidence of the engine's death, read before the next start destroys it.
//
// A process of its own gathers it and writes it to memory shared with the caller. The process is killed when
// its time is over, so that a file system that hangs costs no more than that time. What was written by then
// is the evidence.
#ifndef CTL_EVIDENCE_H
#define CTL_EVIDENCE_H

#include <cstdint>
#include <optional>
#include <string>

#include "ctl/agent_config.h"
#include "ctl/clock.h"
#include "ctl/record_folder.h"
#include "ctl/restart_state.h"

namespace ctl {

struct Evidence {
  std::string verdict;    // one sentence, UTF-8
  std::string text;       // all of it, with the verdict as first line; 64 KiB at most
  KillCounters counters;  // as they are now, for comparison at the next death
};

// Gathers evidence for at most limit_ms milliseconds. Returns nothing, with the reason in *complaint, when
// the process for it cannot be started. Forks, so the caller must have only one thread.
std::optional<Evidence> GatherEvidence(const AgentConfig& config, const RestartState& before,
                                       int64_t limit_ms, std::string* complaint);

// Writes it to a file in the folder "evidence" and removes all but the newest 30. *id becomes its name, such
// as "20261121-010320". Returns 0, or -1 with errno.
int KeepEvidence(const RecordFolder& folder, const Moment& now, const std::string& text, std::string* id);

}  // namespace ctl

#endif
