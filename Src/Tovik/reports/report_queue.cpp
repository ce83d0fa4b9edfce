#include "Tovik/reports/report_queue.h"

#include <algorithm>

#include "DIOSVC/report_types.h"

ReportQueue::Added ReportQueue::Add(const WaitingReport& report, size_t limit) {
  if (std::find(reports_.begin(), reports_.end(), report) != reports_.end()) return Added::MERGED;
  if (reports_.size() < std::max(limit, LEAST)) {
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
  const WaitingReport first = reports_.front();
  reports_.erase(reports_.begin());
  return first;
}
