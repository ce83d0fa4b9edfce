// The rules of `status`: one table, each rule a pure function of what was seen.
#ifndef CTL_STATUS_RULES_H
#define CTL_STATUS_RULES_H

#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ctl/exit_status.h"
#include "ctl/status_picture.h"

namespace ctl {

struct Complaint {
  std::string text;  // one line of UTF-8
  std::optional<time_t> since;
};

struct StatusRule {
  const char* id;
  ExitStatus severity;  // TO_LOOK_AT is WARNING, BROKEN is CRITICAL, CANNOT_TELL is UNKNOWN
  const char* row;      // the row of the form for people that shows it
  const char* meaning;  // one sentence
  std::optional<Complaint> (*judge)(const Picture& seen);
};

struct StatusFinding {
  const StatusRule* rule;
  std::string text;
  std::optional<time_t> since;
};

// Within a severity, findings are told in this order.
std::span<const StatusRule> StatusRules();
// All findings, the worst first: CRITICAL, WARNING, UNKNOWN.
std::vector<StatusFinding> Judge(const Picture& seen);
ExitStatus WorstOf(const std::vector<StatusFinding>& findings);
// "OK", "WARNING", "CRITICAL", "UNKNOWN".
const char* VerdictName(ExitStatus status);
// The first finding's text, or that all is well.
std::string VerdictText(const Picture& seen, const std::vector<StatusFinding>& findings);

// The number of hang checks in a row that found the present engine dead; verdicts on an earlier engine do not
// count.
int64_t DeadedChecks(const Picture& seen);

// PROC_NAME, fit to be shown.
std::string EngineName(const Picture& seen);
// "03:14:07" for a time of today, else "Nov 18 09:12".
std::string ShortTime(time_t time, time_t now);
// True when the agent's memory figure, MB over kB, can never reach its threshold.
bool NeverReached(const Figure& memory);

}  // namespace ctl

#endif
