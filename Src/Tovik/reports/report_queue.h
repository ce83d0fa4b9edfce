// The queue of reports (REPORT_QUEUE): first in, first out, equal ones only once, bounded. It neither locks
// nor traces.
#ifndef TOVIK_REPORTS_REPORT_QUEUE_H
#define TOVIK_REPORTS_REPORT_QUEUE_H

#include <cstddef>
#include <optional>
#include <vector>

// A report type and its code (DIOSVC/report_types.h).
struct WaitingReport {
  int type;
  int code;
  bool operator==(const WaitingReport&) const = default;
};

class ReportQueue {
 public:
  static constexpr size_t LEAST = 8;  // room for one of each report and code

  enum class Added { WAITS, MERGED, OLDEST_GAVE_WAY, GAVE_WAY };

  // Adds a report. One that waits already keeps its place and is not added again (MERGED). When limit reports
  // (LEAST at least) wait, the oldest report that is no alarm gives way; when all are alarms, a new report
  // that is no alarm does. An alarm never gives way: there are fewer alarm codes than places.
  Added Add(const WaitingReport& report, size_t limit);
  // Removes and returns the oldest.
  std::optional<WaitingReport> Next();
  size_t Size() const { return reports_.size(); }

 private:
  std::vector<WaitingReport> reports_;
};

#endif
