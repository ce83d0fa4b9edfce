// What the agent can find, in one table: how each is named, and what alarms and reports of it say.
#ifndef TOVIK_FINDINGS_FINDING_TABLE_H
#define TOVIK_FINDINGS_FINDING_TABLE_H

#include <array>
#include <cstdint>

enum class Finding {
  AGENT_STARTED,
  CHANNELS_OVER,
  MEMORY_OVER,
  CPU_OVER,
  ENGINE_DEAD,
  ENGINE_HANGS,
  DAILY_RESULT,
  ERROR_LINES
};

// The code of a finding that is not reported to the management servers.
inline constexpr int NO_ALARM_CODE = -1;

// One row of the table. A finding without a label is reported to the management servers only.
struct FindingRow {
  Finding finding;
  const char* name;  // of the finding, for programs and file names
  int alarmCode;     // of the finding's report (DIOSVC/alarm_codes.h)
  uint32_t kind;     // of the finding's alarm (alarms/alarm.h)
  const char* label;
  const char* subject;  // how the subject of the finding's mail ends
  const char* traced;   // how the finding's trace lines end
};
extern const std::array<FindingRow, 8> FINDINGS;
const FindingRow& FindingRowOf(Finding finding);

#endif
