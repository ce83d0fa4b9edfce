#include "Tovik/reports/report_mailbox.h"

#include <cerrno>

#include "DIOSVC/report_types.h"
#include "Tovik/reports/report_senders.h"
#include "Tovik/trace.h"
#include "base/stop.h"
#include "base/thread.h"

std::atomic<uint8_t> gMsgFlag{0};
std::atomic<int64_t> gMsgId{0};
std::atomic<int64_t> gAlarmFlag{0};

namespace {

constexpr int64_t HANDOVER_PAUSE_MS = 10;

struct ReportRequest {
  int type;
  int code;
};

}  // namespace

void send_request(int type, int code) {
  const ReportSender* const sender = FindReportSender(type);
  if (sender == nullptr) return;
  ReportRequest request{type, code};
  if (type == REPORT_ALARM) gAlarmFlag = code;
  base::Thread poster;
  if (poster.Start(send_request_thread, &request) < 0) {
    const int error = errno;
    TRACE(TRACE_ERROR, "Create %s send_request_thread fail..Errcode [ %d ]", sender->requestName, error);
    return;
  }
  poster.Join();
  base::SleepMilliseconds(HANDOVER_PAUSE_MS);
}

void* send_request_thread(void* argument) {
  const ReportType* const report = FindReportType(static_cast<const ReportRequest*>(argument)->type);
  if (report != nullptr) gMsgId = report->messageId;
  gMsgFlag = 1;
  base::SleepMilliseconds(HANDOVER_PAUSE_MS);
  return reinterpret_cast<void*>(1);
}
