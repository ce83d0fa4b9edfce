#include "Tovik/reports/management_thread.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>

#include "DIOSVC/report_types.h"
#include "Tovik/config/config.h"
#include "Tovik/exit_flag.h"
#include "Tovik/process/refusals.h"
#include "Tovik/reports/report_mailbox.h"
#include "Tovik/reports/report_senders.h"
#include "Tovik/trace.h"
#include "base/stop.h"
#include "base/thread.h"

namespace {

constexpr int64_t LOOK_PERIOD_SECONDS = 1;
constexpr int64_t BETWEEN_SERVERS_MS = 10;

base::Thread hManageThread;

// Sends one report to every server in turn.
void ServeAll(const ReportSender& sender) {
  for (int64_t i = 0; i < gSendInfo->server_count; ++i) {
    SVC_SERVER entry = gSendInfo->servers[i];
    base::Thread thread;
    if (thread.Start(sender.thread, &entry) < 0) {
      const int error = errno;
      TRACE(TRACE_ERROR, "Create %s Thread fail..Errcode [ %d ]", sender.senderName, error);
      break;
    }
    thread.Join();
    gMsgFlag = 0;
    base::SleepMilliseconds(BETWEEN_SERVERS_MS);
  }
}

void Serve(int64_t messageId) {
  const auto* const report = std::find_if(REPORT_TYPES.begin(), REPORT_TYPES.end(),
                                          [&](const ReportType& row) { return row.messageId == messageId; });
  if (report == REPORT_TYPES.end()) return;
  if (report->type == REPORT_ALARM) alarm_log_message_trace(static_cast<int>(gAlarmFlag));
  ServeAll(*FindReportSender(report->type));
  base::SleepSeconds(LOOK_PERIOD_SECONDS);
}

}  // namespace

bool StartManageThread() {
  if (hManageThread.Start(send_svc_manage_thread, nullptr) == 0) return true;
  const int error = errno;
  TellNoStart("a thread", error);
  TRACE(TRACE_ERROR, "Create send_svc_manage_thread fail..Errcode [ %d ]", error);
  return false;
}

void JoinManageThread() {
  hManageThread.Join();
  DropReports();
}

void* send_svc_manage_thread(void* /*argument*/) {
  while (gSvcManageThrdExit != 1) {
    if (const std::optional<int64_t> waiting = NextReport()) {
      Serve(*waiting);
    } else {
      base::SleepSeconds(LOOK_PERIOD_SECONDS);
    }
  }
  return reinterpret_cast<void*>(1);
}

void alarm_log_message_trace(int code) {
  switch (code) {
    case ALARM_START:
    case ALARM_MEMORY:
    case ALARM_CPU:
    case ALARM_RESTART:
    case CODE_CHANNEL_STATUS:
    case CODE_RESOURCE_USAGE:
    case ALARM_CHANNEL:
    default:
      break;
  }
}
