#include "Tovik/reports/report_mailbox.h"

#include <algorithm>
#include <mutex>
#include <optional>

#include "DIOSVC/report_types.h"
#include "Tovik/config/config.h"
#include "Tovik/trace.h"

std::atomic<uint8_t> gMsgFlag{0};
std::atomic<int64_t> gMsgId{0};
std::atomic<int64_t> gAlarmFlag{0};

namespace {

// For REPORT_QUEUE.
std::mutex reportQueueMutex;
ReportQueue reportQueue;
int64_t reportsGivenUp = 0;  // reports that the queue dropped; guarded by reportQueueMutex

std::optional<int64_t> NextQueuedReport() {
  std::optional<WaitingReport> queuedReport;
  {
    const std::lock_guard<std::mutex> lock(reportQueueMutex);
    queuedReport = reportQueue.Next();
  }
  if (!queuedReport) return std::nullopt;
  if (queuedReport->type == REPORT_ALARM) gAlarmFlag = queuedReport->code;
  return FindReportType(queuedReport->type)->messageId;
}

}  // namespace

void QueueReport(int reportType, int reportCode) {
  const auto queueLimit = static_cast<size_t>(m_report_queue);
  ReportQueue::Added queueOutcome{};
  int64_t queueLost = 0;
  {
    const std::lock_guard<std::mutex> lock(reportQueueMutex);
    queueOutcome = reportQueue.Add({reportType, reportCode}, queueLimit);
    if (queueOutcome == ReportQueue::Added::OLDEST_GAVE_WAY || queueOutcome == ReportQueue::Added::GAVE_WAY)
      ++reportsGivenUp;
    queueLost = reportsGivenUp;
  }
  switch (queueOutcome) {
    case ReportQueue::Added::WAITS:
      break;
    case ReportQueue::Added::MERGED:
      TRACE(TRACE_DEBUG, "report type %d code %d waits already and is sent once", reportType, reportCode);
      break;
    case ReportQueue::Added::OLDEST_GAVE_WAY:
    case ReportQueue::Added::GAVE_WAY:
      TRACE(TRACE_WARN, "REPORT_QUEUE is full: %lld reports given up so far",
            static_cast<long long>(queueLost));
      break;
  }
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

ReportQueue::Added ReportQueue::Add(const WaitingReport& reportToQueue, size_t queueLimit) {
  if (std::find(queuedReports_.begin(), queuedReports_.end(), reportToQueue) != queuedReports_.end())
    return Added::MERGED;
  if (queuedReports_.size() < std::max(queueLimit, LEAST_REPORTS)) {
    queuedReports_.push_back(reportToQueue);
    return Added::WAITS;
  }
  const auto oldestQueued =
      std::find_if(queuedReports_.begin(), queuedReports_.end(),
                   [](const WaitingReport& waitingReport) { return waitingReport.type != REPORT_ALARM; });
  if (oldestQueued != queuedReports_.end()) {
    queuedReports_.erase(oldestQueued);
  } else if (reportToQueue.type != REPORT_ALARM) {
    return Added::GAVE_WAY;
  }
  queuedReports_.push_back(reportToQueue);
  return oldestQueued != queuedReports_.end() ? Added::OLDEST_GAVE_WAY : Added::WAITS;
}

std::optional<WaitingReport> ReportQueue::Next() {
  if (queuedReports_.empty()) return std::nullopt;
  const WaitingReport firstReport = queuedReports_.front();
  queuedReports_.erase(queuedReports_.begin());
  return firstReport;
}
