#include "Tovik/reports/report_senders.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include "DIOSVC/CDIOSVC.h"
#include "DIOSVC/alarm_codes.h"
#include "DIOSVC/report_types.h"
#include "Tovik/config/config.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/exit_flag.h"
#include "Tovik/notices/notices.h"
#include "Tovik/process/start_notices.h"
#include "Tovik/reports/report_mailbox.h"
#include "Tovik/trace.h"
#include "base/format.h"
#include "base/stoppable_wait.h"
#include "base/thread.h"

std::atomic<int32_t> gCpuUsage{0};
std::atomic<int32_t> gMemUsage{0};

namespace {

constexpr std::array<ReportSender, 3> REPORT_SENDERS = {{
    {REPORT_ALARM, send_alarm_thread, "SEND_ALARM", "ALARM_SEND_START"},
    {REPORT_CHANNEL_STATUS, send_ch_status_thread, "SEND_CH_STATUS", "CH_STATUS_SEND_START"},
    {REPORT_RESOURCE_USAGE, send_resouce_info_thread, "SEND_RESOURCE_USAGE", "RESOURCE_INFO_SEND_START"},
}};

std::string ReportFailureWords(const SvcFailure& reportFailure, const char* address) {
  std::string failureWords = reportFailure.what;
  if (::inet_addr(address) == INADDR_NONE) failureWords += "; the address is no dotted IPv4 address";
  if (reportFailure.error != 0) failureWords += std::string(": ") + std::strerror(reportFailure.error);
  if (reportFailure.reply[0] != '\0') failureWords += std::string(": \"") + reportFailure.reply.data() + '"';
  return failureWords;
}

// A stop that cuts a report is no failure of the server's.
void TellReportLost(const SVC_SERVER& reportServer, const SvcFailure& reportFailure) {
  if (!notices::On() || reportFailure.error == ECANCELED) return;
  const std::string reportServerShown =
      base::Format("%s:%lld", reportServer.address, static_cast<long long>(reportServer.port));
  notices::Tell<notices::Notice::REPORT_LOST>(reportServerShown,
                                              ReportFailureWords(reportFailure, reportServer.address));
}

// Connects to the server and lets deliver hand over the report.
template <typename DeliverReport>
void* SendReport(void* reportServer, DeliverReport deliverReport) {
  const SVC_SERVER& reportReceiver = *static_cast<const SVC_SERVER*>(reportServer);
  long reportDelivered = -1;
  try {
    CDIOSVC reportService;
    const long reportConnected =
        reportService.initialize_svc(reportReceiver.index, reportReceiver.address, reportReceiver.port,
                                     m_txt_save, m_sz_txt_path, m_log_level);
    if (reportConnected == 1) reportDelivered = deliverReport(reportService);
    if (reportDelivered != 1) TellReportLost(reportReceiver, reportService.LastFailure());
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "no memory for the report to %s", reportReceiver.address);
  }
  return reinterpret_cast<void*>(reportDelivered);
}

long DeliverAlarm(CDIOSVC& reportService) {
  const auto alarmToSend = static_cast<intptr_t>(gAlarmFlag);
  return reportService.DIO_SVC_PROC(REPORT_ALARM, reinterpret_cast<const void*>(alarmToSend));
}

long DeliverChannelStatus(CDIOSVC& reportService) {
  const std::shared_ptr<const LVCSR_DATA_CHANNEL> statusToSend = CurrentChannelStatus();
  TRACE(TRACE_INFO, "[ %d ][ %d ] initialize_svc complete !!", statusToSend->nChannelCnt,
        statusToSend->nUsedCnt);
  return reportService.DIO_SVC_PROC(REPORT_CHANNEL_STATUS, statusToSend.get());
}

constexpr int64_t SENDERS_LOOK_SECONDS = 1;
constexpr int64_t BETWEEN_SENDERS_MS = 10;

base::Thread hManageThread;

// Sends one report to every server in turn.
void SendToAllServers(const ReportSender& sender) {
  for (int64_t i = 0; i < gSendInfo->server_count; ++i) {
    SVC_SERVER reportReceiver = gSendInfo->servers[i];
    base::Thread senderThread;
    if (senderThread.Start(sender.thread, &reportReceiver) < 0) {
      const int senderError = errno;
      TRACE(TRACE_ERROR, "Create %s Thread fail..Errcode [ %d ]", sender.senderName, senderError);
      break;
    }
    senderThread.Join();
    gMsgFlag = 0;
    base::SleepMilliseconds(BETWEEN_SENDERS_MS);
  }
}

void SendWaitingReport(int64_t waitingMessageId) {
  const auto* const sentReport =
      std::find_if(REPORT_TYPES.begin(), REPORT_TYPES.end(),
                   [&](const ReportType& reportType) { return reportType.messageId == waitingMessageId; });
  if (sentReport == REPORT_TYPES.end()) return;
  if (sentReport->type == REPORT_ALARM) alarm_log_message_trace(static_cast<int>(gAlarmFlag));
  SendToAllServers(*FindReportSender(sentReport->type));
  base::SleepSeconds(SENDERS_LOOK_SECONDS);
}

}  // namespace

const ReportSender* FindReportSender(int type) {
  const auto* senderRow = std::find_if(REPORT_SENDERS.begin(), REPORT_SENDERS.end(),
                                       [&](const ReportSender& sender) { return sender.type == type; });
  return senderRow == REPORT_SENDERS.end() ? nullptr : senderRow;
}

void* send_alarm_thread(void* reportServer) {
  return SendReport(reportServer, DeliverAlarm);
}

void* send_ch_status_thread(void* reportServer) {
  return SendReport(reportServer, DeliverChannelStatus);
}

void* send_resouce_info_thread(void* reportServer) {
  const std::array<int32_t, 2> usageToSend = {gCpuUsage, gMemUsage};
  return SendReport(reportServer, [&](CDIOSVC& reportService) {
    return reportService.DIO_SVC_PROC(REPORT_RESOURCE_USAGE, usageToSend.data());
  });
}

bool StartManageThread() {
  if (hManageThread.Start(send_svc_manage_thread, nullptr) == 0) return true;
  const int manageError = errno;
  TellNoStart("a thread", manageError);
  TRACE(TRACE_ERROR, "Create send_svc_manage_thread fail..Errcode [ %d ]", manageError);
  return false;
}

void JoinManageThread() {
  hManageThread.Join();
  DropReports();
}

void* send_svc_manage_thread(void* /*argument*/) {
  while (gSvcManageThrdExit != 1) {
    if (const std::optional<int64_t> messageToSend = NextReport()) {
      SendWaitingReport(*messageToSend);
    } else {
      base::SleepSeconds(SENDERS_LOOK_SECONDS);
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
