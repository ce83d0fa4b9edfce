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

std::string ReportFailureWords(const SvcFailure& failure, const char* address) {
  std::string failureWords = failure.what;
  if (::inet_addr(address) == INADDR_NONE) failureWords += "; the address is no dotted IPv4 address";
  if (failure.error != 0) failureWords += std::string(": ") + std::strerror(failure.error);
  if (failure.reply[0] != '\0') failureWords += std::string(": \"") + failure.reply.data() + '"';
  return failureWords;
}

// A stop that cuts a report is no failure of the server's.
void TellReportLost(const SVC_SERVER& server, const SvcFailure& failure) {
  if (!notices::On() || failure.error == ECANCELED) return;
  const std::string shown = base::Format("%s:%lld", server.address, static_cast<long long>(server.port));
  notices::Tell<notices::Notice::REPORT_LOST>(shown, ReportFailureWords(failure, server.address));
}

// Connects to the server and lets deliver hand over the report.
template <typename Deliver>
void* Send(void* entry, Deliver deliver) {
  const SVC_SERVER& server = *static_cast<const SVC_SERVER*>(entry);
  long delivered = -1;
  try {
    CDIOSVC service;
    const long connected = service.initialize_svc(server.index, server.address, server.port, m_txt_save,
                                                  m_sz_txt_path, m_log_level);
    if (connected == 1) delivered = deliver(service);
    if (delivered != 1) TellReportLost(server, service.LastFailure());
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "no memory for the report to %s", server.address);
  }
  return reinterpret_cast<void*>(delivered);
}

long DeliverAlarm(CDIOSVC& service) {
  const auto code = static_cast<intptr_t>(gAlarmFlag);
  return service.DIO_SVC_PROC(REPORT_ALARM, reinterpret_cast<const void*>(code));
}

long DeliverChannelStatus(CDIOSVC& service) {
  const std::shared_ptr<const LVCSR_DATA_CHANNEL> status = CurrentChannelStatus();
  TRACE(TRACE_INFO, "[ %d ][ %d ] initialize_svc complete !!", status->nChannelCnt, status->nUsedCnt);
  return service.DIO_SVC_PROC(REPORT_CHANNEL_STATUS, status.get());
}

constexpr int64_t MAILBOX_LOOK_SECONDS = 1;
constexpr int64_t BETWEEN_SERVERS_MS = 10;

base::Thread hManageThread;

// Sends one report to every server in turn.
void ServeAll(const ReportSender& sender) {
  for (int64_t i = 0; i < gSendInfo->server_count; ++i) {
    SVC_SERVER server = gSendInfo->servers[i];
    base::Thread senderThread;
    if (senderThread.Start(sender.thread, &server) < 0) {
      const int error = errno;
      TRACE(TRACE_ERROR, "Create %s Thread fail..Errcode [ %d ]", sender.senderName, error);
      break;
    }
    senderThread.Join();
    gMsgFlag = 0;
    base::SleepMilliseconds(BETWEEN_SERVERS_MS);
  }
}

void ServeReport(int64_t messageId) {
  const auto* const report = std::find_if(REPORT_TYPES.begin(), REPORT_TYPES.end(),
                                          [&](const ReportType& row) { return row.messageId == messageId; });
  if (report == REPORT_TYPES.end()) return;
  if (report->type == REPORT_ALARM) alarm_log_message_trace(static_cast<int>(gAlarmFlag));
  ServeAll(*FindReportSender(report->type));
  base::SleepSeconds(MAILBOX_LOOK_SECONDS);
}

}  // namespace

const ReportSender* FindReportSender(int type) {
  const auto* row = std::find_if(REPORT_SENDERS.begin(), REPORT_SENDERS.end(),
                                 [&](const ReportSender& sender) { return sender.type == type; });
  return row == REPORT_SENDERS.end() ? nullptr : row;
}

void* send_alarm_thread(void* entry) {
  return Send(entry, DeliverAlarm);
}

void* send_ch_status_thread(void* entry) {
  return Send(entry, DeliverChannelStatus);
}

void* send_resouce_info_thread(void* entry) {
  const std::array<int32_t, 2> usage = {gCpuUsage, gMemUsage};
  return Send(entry,
              [&](CDIOSVC& service) { return service.DIO_SVC_PROC(REPORT_RESOURCE_USAGE, usage.data()); });
}

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
      ServeReport(*waiting);
    } else {
      base::SleepSeconds(MAILBOX_LOOK_SECONDS);
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
