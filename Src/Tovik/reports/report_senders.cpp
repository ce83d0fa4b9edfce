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

constexpr std::array<ReportSender, 3> SENDERS = {{
    {REPORT_ALARM, send_alarm_thread, "SEND_ALARM", "ALARM_SEND_START"},
    {REPORT_CHANNEL_STATUS, send_ch_status_thread, "SEND_CH_STATUS", "CH_STATUS_SEND_START"},
    {REPORT_RESOURCE_USAGE, send_resouce_info_thread, "SEND_RESOURCE_USAGE", "RESOURCE_INFO_SEND_START"},
}};

std::string FailureWords(const SvcFailure& failure, const char* address) {
  std::string words = failure.what;
  if (::inet_addr(address) == INADDR_NONE) words += "; the address is no dotted IPv4 address";
  if (failure.error != 0) words += std::string(": ") + std::strerror(failure.error);
  if (failure.reply[0] != '\0') words += std::string(": \"") + failure.reply.data() + '"';
  return words;
}

// A stop that cuts a report is no failure of the server's.
void TellLost(const SVC_SERVER& entry, const SvcFailure& failure) {
  if (!notices::On() || failure.error == ECANCELED) return;
  const std::string server = base::Format("%s:%lld", entry.address, static_cast<long long>(entry.port));
  notices::Tell<notices::Notice::REPORT_LOST>(server, FailureWords(failure, entry.address));
}

// Connects to the server and lets deliver hand over the report.
template <typename Deliver>
void* Send(void* argument, Deliver deliver) {
  const SVC_SERVER& entry = *static_cast<const SVC_SERVER*>(argument);
  long result = -1;
  try {
    CDIOSVC service;
    const long connected = service.initialize_svc(entry.index, entry.address, entry.port, m_txt_save,
                                                  m_sz_txt_path, m_log_level);
    if (connected == 1) result = deliver(service);
    if (result != 1) TellLost(entry, service.LastFailure());
  } catch (const std::bad_alloc&) {
    TRACE(TRACE_ERROR, "no memory for the report to %s", entry.address);
  }
  return reinterpret_cast<void*>(result);
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

const ReportSender* FindReportSender(int type) {
  const auto* row = std::find_if(SENDERS.begin(), SENDERS.end(),
                                 [&](const ReportSender& sender) { return sender.type == type; });
  return row == SENDERS.end() ? nullptr : row;
}

void* send_alarm_thread(void* entry) {
  return Send(entry, DeliverAlarm);
}

void* send_ch_status_thread(void* entry) {
  return Send(entry, DeliverChannelStatus);
}

void* send_resouce_info_thread(void* entry) {
  const std::array<int32_t, 2> figures = {gCpuUsage, gMemUsage};
  return Send(entry,
              [&](CDIOSVC& service) { return service.DIO_SVC_PROC(REPORT_RESOURCE_USAGE, figures.data()); });
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
