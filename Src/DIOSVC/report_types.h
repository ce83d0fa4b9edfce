// The types of reports to a management server. This is the only list of them.
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
  int64_t messageId;                             // under which it waits in the mailbox
  const char* keyword;                           // begins the body of its frame ...
  std::string (*body)(const void* report_data);  // ... and this goes on, made of what the sender gathered
  const char* failure_trace;                     // traced when it could not be delivered
};
extern const std::array<ReportType, 3> REPORT_TYPES;
// Null for a type that is none.
const ReportType* FindReportType(int64_t report_type);

#endif
