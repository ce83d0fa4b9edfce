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

constexpr int64_t MAILBOX_PAUSE_MS = 10;

struct MailboxRequest {
  int type;
  int code;
};

}  // namespace

void send_request(int type, int code) {
  const ReportSender* const sender = FindReportSender(type);
  if (sender == nullptr) return;
  if (m_report_queue != 0) {
    QueueReport(type, code);
    return;
  }
  MailboxRequest request{type, code};
  if (type == REPORT_ALARM) gAlarmFlag = code;
  base::Thread poster;
  if (poster.Start(send_request_thread, &request) < 0) {
    const int error = errno;
    TRACE(TRACE_ERROR, "Create %s send_request_thread fail..Errcode [ %d ]", sender->requestName, error);
    return;
  }
  poster.Join();
  base::SleepMilliseconds(MAILBOX_PAUSE_MS);
}

void* send_request_thread(void* argument) {
  const ReportType* const report = FindReportType(static_cast<const MailboxRequest*>(argument)->type);
  if (report != nullptr) gMsgId = report->messageId;
  gMsgFlag = 1;
  base::SleepMilliseconds(MAILBOX_PAUSE_MS);
  return reinterpret_cast<void*>(1);
}
