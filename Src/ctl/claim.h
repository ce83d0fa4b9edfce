// The claim of the start that is under way: only one start runs at a time. A claim names a process and ends
// with that process, however it ends.
#ifndef CTL_CLAIM_H
#define CTL_CLAIM_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "ctl/clock.h"
#include "ctl/process_table.h"
#include "ctl/record_folder.h"

namespace ctl {

struct Claim {
  pid_t pid = 0;
  uint64_t start = 0;  // start time of the process, as another one may get its pid
  int64_t since_ms = 0;
  std::string boot_id;
};
std::string ClaimText(const Claim& claim);
// Returns nothing for a text that is no claim.
std::optional<Claim> ParseClaim(const std::string& text);

// True when the claim still holds: it is of this boot and younger than 10 s, and its process is alive and not
// stopped. `process` is what runs under its pid now.
bool ClaimHolds(const Claim& claim, const Moment& now, const std::optional<ProcessRow>& process);

enum class Claimed { OURS, ANOTHERS, UNSURE };
// Takes the claim for a process, unless another's holds. UNSURE, with what is wrong, when that could not be
// settled within a fifth of a second or the claim could not be written: nothing keeps two starts apart then.
Claimed TakeClaim(const RecordFolder& folder, const Claim& ours, std::string* complaint);

}  // namespace ctl

#endif
