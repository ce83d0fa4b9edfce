// What the agent can find, in one table, and the one call that tells it: to the management servers, then by
// mail, then by webhook.
#ifndef TOVIK_FINDINGS_FINDINGS_H
#define TOVIK_FINDINGS_FINDINGS_H

#include <array>
#include <cstdint>
#include <string>

#include "Tovik/alarms/alarm.h"

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

// A finding without one is not told to the management servers.
inline constexpr int NO_ALARM_CODE = -1;

// One finding. Without a label it is told to the management servers alone.
struct FindingRow {
  Finding finding;
  const char* name;  // as programs call it
  int alarmCode;     // DIOSVC/report_types.h
  uint32_t kind;     // alarms/alarm.h
  const char* label;
  const char* subject;  // how the mail's subject ends
  const char* traced;   // how its trace lines end
};
extern const std::array<FindingRow, 8> FINDINGS;
const FindingRow& RowOf(Finding finding);

// One finding of this moment. Texts in code page 949, borrowed for the call.
struct Found {
  Finding finding;
  const char* process = "";  // the engine's name
  const char* message = "";
  const char* attachment = nullptr;  // path of a file for the mail
};

// The alarm that people get for it. Its title is "[ <host's IP> ] <process> <subject>", cut to 1,023 bytes.
Alarm AlarmOf(const Found& found);

// Tells it on every channel that it has and that the configuration has switched on; mail and post on the
// caller's thread, each followed by its trace line whatever came of it.
void Raise(const Found& found);

#endif
