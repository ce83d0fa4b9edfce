#include "Tovik/reports/report_request.h"

#include <cerrno>

#include "DIOSVC/report_types.h"
#include "Tovik/config/config.h"
#include "Tovik/reports/report_mailbox.h"
#include "Tovik/reports/report_senders.h"
#include "Tovik/trace.h"
#include "base/stoppable_wait.h"
#include "base/thread.h"

namespace {

constexpr int64_t REQUEST_PAUSE_MS = 10;

struct RequestedReport {
  int type;
  int code;
};

}  // namespace

void send_request(int requestedType, int requestedCode) {
  const ReportSender* const requestSender = FindReportSender(requestedType);
  if (requestSender == nullptr) return;
  if (m_report_queue != 0) {
    QueueReport(requestedType, requestedCode);
    return;
  }
  RequestedReport request{requestedType, requestedCode};
  if (requestedType == REPORT_ALARM) gAlarmFlag = requestedCode;
  base::Thread requestPoster;
  if (requestPoster.Start(send_request_thread, &request) < 0) {
    const int requestError = errno;
    TRACE(TRACE_ERROR, "Create %s send_request_thread fail..Errcode [ %d ]", requestSender->requestName,
          requestError);
    return;
  }
  requestPoster.Join();
  base::SleepMilliseconds(REQUEST_PAUSE_MS);
}

void* send_request_thread(void* request) {
  const ReportType* const requestedReport =
      FindReportType(static_cast<const RequestedReport*>(request)->type);
  if (requestedReport != nullptr) gMsgId = requestedReport->messageId;
  gMsgFlag = 1;
  base::SleepMilliseconds(REQUEST_PAUSE_MS);
  return reinterpret_cast<void*>(1);
}
