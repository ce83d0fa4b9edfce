// Where reports to the management servers wait: a mailbox of one slot, or with REPORT_QUEUE a queue.
//
// send_request puts a report there, and the management thread (management_thread.h) looks once a second. In
// the mailbox a request posted before an earlier one was looked at takes its place, one posted while the
// servers are being served is cleared with it, and an alarm's code is kept aside: the sender takes the
// latest. In the queue (report_queue.h) each waits for its turn with its own code.
#ifndef TOVIK_REPORTS_REPORT_MAILBOX_H
#define TOVIK_REPORTS_REPORT_MAILBOX_H

#include <atomic>
#include <cstdint>
#include <optional>

extern std::atomic<uint8_t> gMsgFlag;  // 1 while a request waits in the mailbox
extern std::atomic<int64_t> gMsgId;    // its message id
// Code of the alarm that senders send: of the latest request; with REPORT_QUEUE of the alarm whose turn it
// is.
extern std::atomic<int64_t> gAlarmFlag;

// Posts a request of a report type (DIOSVC/report_types.h); back when it lies in the mailbox, some 20 ms
// later, or in the queue, at once. Other types do nothing. A request whose thread cannot be created is lost,
// with a trace line. Reports that the queue merges or gives up are traced. Any thread.
void send_request(int type, int code);
// Its thread's body; takes the type and code as two int.
void* send_request_thread(void* argument);

// The message id of the report to be sent next, if one waits. It leaves the queue and its code goes to
// gAlarmFlag; the mailbox is cleared by whoever has sent it. For the management thread.
std::optional<int64_t> NextReport();

// Empties the queue and traces how many reports are lost by it. For the stop, once nobody posts.
void DropReports();

#endif
