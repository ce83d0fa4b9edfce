// The senders of reports: short-lived threads that deliver one report to one management server
// (DIOSVC/CDIOSVC.h). A sender reads what it reports as it is when it runs.
#ifndef TOVIK_REPORTS_REPORT_SENDERS_H
#define TOVIK_REPORTS_REPORT_SENDERS_H

#include <array>
#include <atomic>
#include <cstdint>

// The figures of a resource report, written by the process check. The last writer wins.
extern std::atomic<int32_t> gCpuUsage;  // percent of the host
extern std::atomic<int32_t> gMemUsage;  // engine's MB over the host's kB, times 100

// Who sends a type of report, and what its threads are called in trace lines when they cannot be created.
struct ReportSender {
  int type;  // DIOSVC/report_types.h
  void* (*thread)(void* entry);
  const char* requestName;
  const char* senderName;
};
// Null for a type that is none.
const ReportSender* FindReportSender(int type);

// Threads' bodies: one report to one server, given by a SVC_SERVER that outlives the thread. 1, or -1.
void* send_alarm_thread(void* entry);
void* send_ch_status_thread(void* entry);
void* send_resouce_info_thread(void* entry);

#endif
