#include "Tovik/reports/report_mailbox.h"

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <optional>

#include "DIOSVC/report_types.h"
#include "Tovik/config/config.h"
#include "Tovik/reports/report_senders.h"
#include "Tovik/trace.h"
#include "base/stoppable_wait.h"
#include "base/thread.h"

std::atomic<uint8_t> gMsgFlag{0};
std::atomic<int64_t> gMsgId{0};
std::atomic<int64_t> gAlarmFlag{0};

namespace {

constexpr int64_t MAILBOX_PAUSE_MS = 10;

struct MailboxRequest {
  int type;
  int code;
};

// For REPORT_QUEUE.
std::mutex reportQueueMutex;
ReportQueue reportQueue;
int64_t givenUp = 0;  // reports that the queue dropped; guarded by reportQueueMutex

void Enqueue(int type, int code) {
  const auto limit = static_cast<size_t>(m_report_queue);
  ReportQueue::Added added{};
  int64_t lost = 0;
  {
    const std::lock_guard<std::mutex> lock(reportQueueMutex);
    added = reportQueue.Add({type, code}, limit);
    if (added == ReportQueue::Added::OLDEST_GAVE_WAY || added == ReportQueue::Added::GAVE_WAY) ++givenUp;
    lost = givenUp;
  }
  switch (added) {
    case ReportQueue::Added::WAITS:
      break;
    case ReportQueue::Added::MERGED:
      TRACE(TRACE_DEBUG, "report type %d code %d waits already and is sent once", type, code);
      break;
    case ReportQueue::Added::OLDEST_GAVE_WAY:
    case ReportQueue::Added::GAVE_WAY:
      TRACE(TRACE_WARN, "REPORT_QUEUE is full: %lld reports given up so far", static_cast<long long>(lost));
      break;
  }
}

std::optional<int64_t> NextQueuedReport() {
  std::optional<WaitingReport> report;
  {
    const std::lock_guard<std::mutex> lock(reportQueueMutex);
    report = reportQueue.Next();
  }
  if (!report) return std::nullopt;
  if (report->type == REPORT_ALARM) gAlarmFlag = report->code;
  return FindReportType(report->type)->messageId;
}

}  // namespace

void send_request(int type, int code) {
  const ReportSender* const sender = FindReportSender(type);
  if (sender == nullptr) return;
  if (m_report_queue != 0) {
    Enqueue(type, code);
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

std::optional<int64_t> NextReport() {
  if (m_report_queue != 0) return NextQueuedReport();
  return gMsgFlag == 0 ? std::nullopt : std::optional(gMsgId.load());
}

void DropReports() {
  const std::lock_guard<std::mutex> lock(reportQueueMutex);
  if (reportQueue.Size() == 0) return;
  TRACE(TRACE_WARN, "the stop drops %zu reports that wait for the management servers", reportQueue.Size());
  reportQueue = {};
}

ReportQueue::Added ReportQueue::Add(const WaitingReport& report, size_t limit) {
  if (std::find(reports_.begin(), reports_.end(), report) != reports_.end()) return Added::MERGED;
  if (reports_.size() < std::max(limit, LEAST_REPORTS)) {
    reports_.push_back(report);
    return Added::WAITS;
  }
  const auto oldest = std::find_if(reports_.begin(), reports_.end(),
                                   [](const WaitingReport& waiting) { return waiting.type != REPORT_ALARM; });
  if (oldest != reports_.end()) {
    reports_.erase(oldest);
  } else if (report.type != REPORT_ALARM) {
    return Added::GAVE_WAY;
  }
  reports_.push_back(report);
  return oldest != reports_.end() ? Added::OLDEST_GAVE_WAY : Added::WAITS;
}

std::optional<WaitingReport> ReportQueue::Next() {
  if (reports_.empty()) return std::nullopt;
  const WaitingReport firstReport = reports_.front();
  reports_.erase(reports_.begin());
  return firstReport;
}
