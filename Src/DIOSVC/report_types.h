// The types of reports to a management server and the codes of alarms. This is the only list of either.
#ifndef DIOSVC_REPORT_TYPES_H
#define DIOSVC_REPORT_TYPES_H

#include <array>
#include <cstdint>
#include <string>

inline constexpr int REPORT_ALARM = 1;
inline constexpr int REPORT_CHANNEL_STATUS = 2;
inline constexpr int REPORT_RESOURCE_USAGE = 3;

// One kind of report. A new one is a row here, and a row of the senders that gather its data.
struct ReportType {
  int type;
  int64_t messageId;                      // under which it waits in the mailbox
  const char* keyword;                    // begins the body of its frame ...
  std::string (*body)(const void* data);  // ... and this goes on, made of what the sender gathered
  const char* failed;                     // traced when it could not be delivered
};
extern const std::array<ReportType, 3> REPORT_TYPES;
// Null for a type that is none.
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
