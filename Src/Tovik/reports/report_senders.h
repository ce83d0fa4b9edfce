// Sends the waiting reports (report_mailbox.h): the management thread, and the senders that it starts.
//
// The management thread looks once a second. The servers get a report strictly one after another, each by a
// sender that is joined before the next begins, so a silent server holds up those after it. A sender is a
// short-lived thread that delivers one report to one management server (DIOSVC/CDIOSVC.h), with the figures
// as they are when it runs. A failed report is traced and not sent again.
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
  void* (*thread)(void* reportServer);
  const char* requestName;
  const char* senderName;
};
// Null for an unknown type.
const ReportSender* FindReportSender(int type);

// Thread bodies. reportServer is a SVC_SERVER that must outlive the thread; each delivers one report to that
// server. They return 1, or -1 on failure.
void* send_alarm_thread(void* reportServer);
void* send_ch_status_thread(void* reportServer);
void* send_resouce_info_thread(void* reportServer);

// Starts the management thread; call it once. Returns false, with a trace line, when it cannot be created.
[[nodiscard]] bool StartManageThread();
// Waits for its end and drops the reports not yet sent.
void JoinManageThread();

// Its body; ends, with 1, on gSvcManageThrdExit (after the pass in progress). gSendInfo must live
// until then. The argument is not used.
void* send_svc_manage_thread(void* argument);

// Called with the alarm's code before an alarm is sent. It has no effect today.
void alarm_log_message_trace(int code);

#endif
