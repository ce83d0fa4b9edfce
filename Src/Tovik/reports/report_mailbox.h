// Where reports to the management servers wait: a mailbox of one slot.
//
// send_request puts a report there, and the management thread (management_thread.h) looks once a second. A
// request posted before an earlier one was looked at takes its place; one posted while the servers are being
// served is cleared with it. An alarm's code is kept aside: the sender takes the latest.
#ifndef TOVIK_REPORTS_REPORT_MAILBOX_H
#define TOVIK_REPORTS_REPORT_MAILBOX_H

#include <atomic>
#include <cstdint>

extern std::atomic<uint8_t> gMsgFlag;    // 1 while a request waits
extern std::atomic<int64_t> gMsgId;      // its message id
extern std::atomic<int64_t> gAlarmFlag;  // code of the latest alarm request

// Posts a request of a report type (DIOSVC/report_types.h); back when it lies in the mailbox, some 20 ms
// later. Other types do nothing. A request whose thread cannot be created is lost, with a trace line. Any
// thread.
void send_request(int type, int code);
// Its thread's body; takes the type and code as two int.
void* send_request_thread(void* argument);

#endif
