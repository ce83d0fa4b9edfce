// The evidence of a death: what can be read about it before the next start blurs it.
//
// It is gathered in a process of its own, which shares a board of 64 KiB with the caller and is killed when
// its time is over, so that a file system that hangs costs that time and no more: what stands on the board by
// then is the evidence.
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
  std::string text;       // the whole, the verdict as its first line; 64 KiB at most
  KillCounters counters;  // as they are now, to compare the next death with
};

// Gathers it within limit_ms. Nothing, with what is wrong, when not even a process could be started for it.
// Forks, so the caller has one thread.
std::optional<Evidence> GatherEvidence(const AgentConfig& config, const RestartState& before,
                                       int64_t limit_ms, std::string* complaint);

// Keeps it in the folder "evidence" and removes all but the newest 30; *id becomes its name, such as
// "20261121-010320". 0, or -1 with errno.
int KeepEvidence(const RecordFolder& folder, const Moment& now, const std::string& text, std::string* id);

}  // namespace ctl

#endif
