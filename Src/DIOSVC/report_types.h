// The kinds of a report to a management server and the codes of an alarm: the only list of either.
#ifndef DIOSVC_REPORT_TYPES_H
#define DIOSVC_REPORT_TYPES_H

#include <array>
#include <cstdint>
#include <string>

inline constexpr int REPORT_ALARM = 1;
inline constexpr int REPORT_CHANNEL_STATUS = 2;
inline constexpr int REPORT_RESOURCE_USAGE = 3;

// One kind of report: the type that callers name, the id under which it waits in the mailbox, and the word
// that begins the body of its frame.
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
// Null for a type that is none.
const ReportType* FindReportType(int64_t type);

inline constexpr int ALARM_START = 0;
inline constexpr int ALARM_MEMORY = 1;
inline constexpr int ALARM_CPU = 2;
inline constexpr int ALARM_RESTART = 3;
inline constexpr int CODE_CHANNEL_STATUS = 4;  // accompany requests that carry no alarm
inline constexpr int CODE_RESOURCE_USAGE = 5;
inline constexpr int ALARM_CHANNEL = 6;

// The text that an alarm's frame carries; empty for a code without one.
const char* AlarmText(int64_t code);

#endif
