#include "Tovik/reports/report_request.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <new>

#include "DIOSVC/CDIOSVC.h"
#include "Tovik/core/state.h"
#include "Tovik/core/trace.h"
#include "Tovik/engine/channel_status.h"
#include "base/stop.h"
#include "base/thread.h"

std::atomic<uint8_t> gMsgFlag{0};
std::atomic<int64_t> gMsgId{0};
std::atomic<int64_t> gAlarmFlag{0};

namespace {

constexpr int64_t HANDOVER_PAUSE_MS = 10;
constexpr int64_t LOOK_PERIOD_SECONDS = 1;

struct ReportRequest {
  int type;
  int code;
};

// One type of request: how it lies in the mailbox, and who sends it.
struct Report {
  int type;
  int64_t messageId;
  void* (*sender)(void*);
  const char* requestName;  // in the trace lines of threads that cannot be created
  const char* senderName;
};
constexpr std::array<Report, 3> REPORTS = {{
    {REQUEST_ALARM, MESSAGE_ALARM, send_alarm_thread, "SEND_ALARM", "ALARM_SEND_START"},
    {REQUEST_CHANNEL_STATUS, MESSAGE_CHANNEL_STATUS, send_ch_status_thread, "SEND_CH_STATUS",
     "CH_STATUS_SEND_START"},
    {REQUEST_RESOURCE_USAGE, MESSAGE_RESOURCE_USAGE, send_resouce_info_thread, "SEND_RESOURCE_USAGE",
     "RESOURCE_INFO_SEND_START"},
}};

const Report* ReportOfType(int type) {
  const auto* report =
      std::find_if(REPORTS.begin(), REPORTS.end(), [&](const Report& row) { return row.type == type; });
  return report == REPORTS.end() ? nullptr : report;
}

const Report* ReportOfMessage(int64_t messageId) {
  const auto* report = std::find_if(REPORTS.begin(), REPORTS.end(),
                                    [&](const Report& row) { return row.messageId == messageId; });
  return report == REPORTS.end() ? nullptr : report;
}

// One report to every server in turn.
void ServeAll(const Report& report) {
  for (int64_t i = 0; i < gSendInfo->server_count; ++i) {
    SVC_SERVER entry = gSendInfo->servers[i];
    base::Thread sender;
    if (sender.Start(report.sender, &entry) < 0) {
      const int error = errno;
      TRACE(TRACE_ERROR, "Create %s Thread fail..Errcode [ %d ]", report.senderName, error);
      break;
    }
    sender.Join();
    gMsgFlag = 0;
    base::SleepMilliseconds(HANDOVER_PAUSE_MS);
  }
}

void* Result(long value) {
  return reinterpret_cast<void*>(value);
}

bool Connect(CDIOSVC& service, const SVC_SERVER& entry) {
  return service.initialize_svc(entry.index, entry.address, entry.port, m_txt_save, m_sz_txt_path,
                                m_log_level) == 1;
}

void* LostForMemory(const SVC_SERVER& entry) {
  TRACE(TRACE_ERROR, "no memory for the report to %s", entry.address);
  return Result(-1);
}

// Connects to the server and lets deliver hand over the report.
template <typename Deliver>
void* Send(void* argument, Deliver deliver) {
  const SVC_SERVER& entry = *static_cast<const SVC_SERVER*>(argument);
  try {
    CDIOSVC service;
    return Result(Connect(service, entry) ? deliver(service) : -1);
  } catch (const std::bad_alloc&) {
    return LostForMemory(entry);
  }
}

}  // namespace

void send_request(int type, int code) {
  const Report* report = ReportOfType(type);
  if (report == nullptr) return;
  ReportRequest request{type, code};
  if (type == REQUEST_ALARM) gAlarmFlag = code;
  base::Thread poster;
  if (poster.Start(send_request_thread, &request) < 0) {
    const int error = errno;
    TRACE(TRACE_ERROR, "Create %s send_request_thread fail..Errcode [ %d ]", report->requestName, error);
    return;
  }
  poster.Join();
  base::SleepMilliseconds(HANDOVER_PAUSE_MS);
}

void* send_request_thread(void* argument) {
  const Report* report = ReportOfType(static_cast<const ReportRequest*>(argument)->type);
  if (report != nullptr) gMsgId = report->messageId;
  gMsgFlag = 1;
  base::SleepMilliseconds(HANDOVER_PAUSE_MS);
  return Result(1);
}

void* send_svc_manage_thread(void* /*argument*/) {
  while (gSvcManageThrdExit != 1) {
    if (gMsgFlag == 0) {
      base::SleepSeconds(LOOK_PERIOD_SECONDS);
      continue;
    }
    const Report* report = ReportOfMessage(gMsgId);
    if (report == nullptr) continue;
    if (report->type == REQUEST_ALARM) alarm_log_message_trace(static_cast<int>(gAlarmFlag));
    ServeAll(*report);
    base::SleepSeconds(LOOK_PERIOD_SECONDS);
  }
  return Result(1);
}

void* send_alarm_thread(void* entry) {
  return Send(entry, [](CDIOSVC& service) {
    const auto code = static_cast<intptr_t>(gAlarmFlag);
    return service.DIO_SVC_PROC(REQUEST_ALARM, reinterpret_cast<const void*>(code));
  });
}

// Without Send, so that its trace line bears its name.
void* send_ch_status_thread(void* argument) {
  const SVC_SERVER& entry = *static_cast<const SVC_SERVER*>(argument);
  try {
    CDIOSVC service;
    if (!Connect(service, entry)) return Result(-1);
    const std::shared_ptr<const LVCSR_DATA_CHANNEL> status = CurrentChannelStatus();
    TRACE(TRACE_INFO, "[ %d ][ %d ] initialize_svc complete !!", status->nChannelCnt, status->nUsedCnt);
    return Result(service.DIO_SVC_PROC(REQUEST_CHANNEL_STATUS, status.get()));
  } catch (const std::bad_alloc&) {
    return LostForMemory(entry);
  }
}

void* send_resouce_info_thread(void* entry) {
  const std::array<int32_t, 2> figures = {gCpuUsage, gMemUsage};
  return Send(entry,
              [&](CDIOSVC& service) { return service.DIO_SVC_PROC(REQUEST_RESOURCE_USAGE, figures.data()); });
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
