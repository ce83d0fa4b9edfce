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
int64_t givenUp = 0;  // reports that the queue dropped; guarded by reportQueueMutex

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

void QueueReport(int type, int code) {
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
