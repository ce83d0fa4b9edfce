// What `status` judges: one table of rules, each a pure function of what was seen.
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
  const char* row;      // the row of the human form that shows it
  const char* meaning;  // one sentence
  std::optional<Complaint> (*judge)(const Picture& seen);
};

struct StatusFinding {
  const StatusRule* rule;
  std::string text;
  std::optional<time_t> since;
};

// In the order in which they are told within a severity.
std::span<const StatusRule> StatusRules();
// The worst first: CRITICAL, WARNING, UNKNOWN.
std::vector<StatusFinding> Judge(const Picture& seen);
ExitStatus WorstOf(const std::vector<StatusFinding>& findings);
// "OK", "WARNING", "CRITICAL", "UNKNOWN".
const char* VerdictName(ExitStatus status);
// The first finding's text, or that all is well.
std::string VerdictText(const Picture& seen, const std::vector<StatusFinding>& findings);

// Hang checks in a row that found this engine dead: 0 for what was said of one before it.
int64_t DeadedChecks(const Picture& seen);

// PROC_NAME as it is shown.
std::string EngineName(const Picture& seen);
// "03:14:07" of the day, else "Nov 18 09:12".
std::string ShortTime(time_t time, time_t now);
// A threshold that the agent's memory figure, MB over kB, can never reach, and one that it always does.
bool NeverReached(const Figure& memory);

}  // namespace ctl

#endif
