// The types of reports to a management server and the codes of alarms. This is the only list of either.
#ifndef DIOSVC_REPORT_TYPES_H
#define DIOSVC_REPORT_TYPES_H

#include <array>
#include <cstdint>
#include <string>

inline constexpr int REPORT_ALARM = 1;
inline constexpr int REPORT_CHANNEL_STATUS = 2;
inline constexpr int REPORT_RESOURCE_USAGE = 3;

// One type of report: the type that callers use, the id under which the report waits in the mailbox, and the
// keyword that begins the body of its frame.
struct ReportType {
  int type;
  int64_t messageId;
  const char* keyword;
};
inline constexpr std::array<ReportType, 3> REPORT_TYPES = {{
    {REPORT_ALARM, 1125, "ALARM+"},
    {REPORT_CHANNEL_STATUS, 1127, "CH_STATE_DATA+"},
    {REPORT_RESOURCE_USAGE, 1128, "RESOURCE_INFO+"},
}};
// Returns null for an unknown type.
const ReportType* FindReportType(int64_t type);

inline constexpr int ALARM_START = 0;
inline constexpr int ALARM_MEMORY = 1;
inline constexpr int ALARM_CPU = 2;
inline constexpr int ALARM_RESTART = 3;
inline constexpr int CODE_CHANNEL_STATUS = 4;  // 4 and 5 accompany requests that carry no alarm
inline constexpr int CODE_RESOURCE_USAGE = 5;
inline constexpr int ALARM_CHANNEL = 6;

// The text in an alarm's frame; empty for a code without a text.
const char* AlarmText(int64_t code);

#endif
