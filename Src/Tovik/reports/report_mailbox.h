// Where reports to the management servers wait: a mailbox of one slot, or with REPORT_QUEUE a queue.
//
// send_request (report_request.h) puts a report there, and the management thread (report_senders.h) looks
// once a second. In the mailbox a new request replaces one that was not looked at yet, and one posted while
// the servers get an earlier one is lost: both are cleared together. An alarm's code is kept apart, and
// senders take the latest. In the queue each report waits for its turn with its own code.
#ifndef TOVIK_REPORTS_REPORT_MAILBOX_H
#define TOVIK_REPORTS_REPORT_MAILBOX_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

extern std::atomic<uint8_t> gMsgFlag;  // 1 while a request waits in the mailbox
extern std::atomic<int64_t> gMsgId;    // its message id
// The code that alarm senders send: that of the latest alarm requested; with REPORT_QUEUE, of the alarm whose
// turn it is.
extern std::atomic<int64_t> gAlarmFlag;

// Puts a report into the queue. What the queue merges or drops is traced. Any thread.
void QueueReport(int reportType, int reportCode);

// The message id of the report to be sent next, if one waits. In the queue it is removed, and an alarm's code
// goes to gAlarmFlag. The mailbox stays as it is: the caller clears it after sending. For the management
// thread.
std::optional<int64_t> NextReport();

// Empties the queue and traces how many reports are lost. For the stop, when nobody posts any more.
void DropReports();

// A report type and its code (DIOSVC/report_types.h, alarm_codes.h).
struct WaitingReport {
  int type;
  int code;
  bool operator==(const WaitingReport&) const = default;
};

// The queue of REPORT_QUEUE: first in, first out, equal ones only once, bounded. It neither locks nor traces.
class ReportQueue {
 public:
  static constexpr size_t LEAST_REPORTS = 8;  // room for one of each report and code

  enum class Added { WAITS, MERGED, OLDEST_GAVE_WAY, GAVE_WAY };

  // Adds a report. One that waits already keeps its place and is not added again (MERGED). When queueLimit
  // reports (LEAST at least) wait, the oldest report that is no alarm gives way; when all are alarms, a new
  // report that is no alarm does. An alarm never gives way: there are fewer alarm codes than places.
  Added Add(const WaitingReport& reportToQueue, size_t queueLimit);
  // Removes and returns the oldest.
  std::optional<WaitingReport> Next();
  size_t Size() const { return queuedReports_.size(); }

 private:
  std::vector<WaitingReport> queuedReports_;
};

#endif
