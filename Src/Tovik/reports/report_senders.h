// The senders of reports: short-lived threads, each of which delivers one report to one management server
// (DIOSVC/CDIOSVC.h). A sender reports the figures as they are when it runs.
#ifndef TOVIK_REPORTS_REPORT_SENDERS_H
#define TOVIK_REPORTS_REPORT_SENDERS_H

#include <array>
#include <atomic>
#include <cstdint>

// The figures of a resource report, written by the process check.
extern std::atomic<int32_t> gCpuUsage;  // percent of the host
extern std::atomic<int32_t> gMemUsage;  // engine's MB over the host's kB, times 100

// The sender of a type of report, and the names of its threads in the trace line when one cannot be created.
struct ReportSender {
  int type;  // DIOSVC/report_types.h
  void* (*thread)(void* entry);
  const char* requestName;
  const char* senderName;
};
// Null for an unknown type.
const ReportSender* FindReportSender(int type);

// Thread bodies. entry is a SVC_SERVER that must outlive the thread; each delivers one report to that server.
// They return 1, or -1 on failure.
void* send_alarm_thread(void* entry);
void* send_ch_status_thread(void* entry);
void* send_resouce_info_thread(void* entry);

#endif
