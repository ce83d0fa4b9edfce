// What the agent can find, in one table, and the one call that reports it: to the management servers, then by
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

// The code of a finding that is not reported to the management servers.
inline constexpr int NO_ALARM_CODE = -1;

// One row of the table. A finding without a label is reported to the management servers only.
struct FindingRow {
  Finding finding;
  const char* name;  // for programs and file names
  int alarmCode;     // DIOSVC/alarm_codes.h
  uint32_t kind;     // alarms/alarm.h
  const char* label;
  const char* subject;  // how the mail's subject ends
  const char* traced;   // how its trace lines end
};
extern const std::array<FindingRow, 8> FINDINGS;
const FindingRow& RowOf(Finding finding);

// Something found just now. Texts are in code page 949 and borrowed for the call.
struct Found {
  Finding finding;
  const char* process = "";  // the engine's name
  const char* message = "";
  const char* attachment = nullptr;  // path of a file for the mail
};

// The alarm for people. Its title is "[ <host's IP> ] <process> <subject>", cut to 1,023 bytes.
Alarm AlarmOf(const Found& found);

// Reports what was found on each channel that its row has and the configuration switches on. Mail and post go
// out on the caller's thread, which waits for them. Each is followed by its trace line, sent or not.
void Raise(const Found& found);

// The messages whose text comes from the agent.
//
// For a dead engine. process is its name; the message has its encoding, code page 949.
std::string RestartMessage(const char* process);
// For a threshold that was reached. what is "Channel", "Memory" or "CPU"; figure and limit are in percent.
std::string OverMessage(const char* process, const char* what, int figure, int limit);
// Of an engine that hangs. verdict is the hang log's, how many times it was found in a row.
std::string HangMessage(const char* process, const char* verdict, int64_t times);

#endif
