// The management thread: serves the report that waits in the mailbox (report_mailbox.h).
//
// It looks once a second. The servers get a report strictly one after another, each by a thread of its own
// (report_senders.h) that is joined before the next begins: a server that stays silent holds up the later
// ones. A failed report is traced and forgotten.
#ifndef TOVIK_REPORTS_MANAGEMENT_THREAD_H
#define TOVIK_REPORTS_MANAGEMENT_THREAD_H

// Starts the thread, once; false when it cannot be created, which is traced. The other waits for its end.
[[nodiscard]] bool StartManageThread();
void JoinManageThread();

// The thread's body; ends, with 1, on gSvcManageThrdExit (after the pass in progress). gSendInfo must live
// until then. The argument is not used.
void* send_svc_manage_thread(void* argument);

// Called with the alarm's code before alarms are sent; nothing hangs on it today.
void alarm_log_message_trace(int code);

#endif
