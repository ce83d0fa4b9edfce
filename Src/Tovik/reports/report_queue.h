// The order in which reports wait, where more than one may (REPORT_QUEUE): in the order of their posting,
// equal ones once, bounded. It knows neither threads nor traces.
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
  static constexpr size_t LEAST = 8;  // fewer places would not hold one of each

  enum class Added { WAITS, MERGED, OLDEST_GAVE_WAY, GAVE_WAY };

  // A report that already waits keeps its place and stays one. Beyond the limit (LEAST at least) the oldest
  // report that is no alarm gives way; where all are alarms, a new one that is none does. Alarms never do:
  // there are fewer codes of them than places.
  Added Add(const WaitingReport& report, size_t limit);
  // Takes the oldest.
  std::optional<WaitingReport> Next();
  size_t Size() const { return reports_.size(); }

 private:
  std::vector<WaitingReport> reports_;
};

#endif
