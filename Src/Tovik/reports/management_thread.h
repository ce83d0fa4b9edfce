// The management thread: sends the waiting reports (report_mailbox.h).
//
// It looks once a second. The servers get a report strictly one after another, each by a thread of its own
// (report_senders.h) that is joined before the next begins, so a silent server holds up those after it. A
// failed report is traced and not sent again.
#ifndef TOVIK_REPORTS_MANAGEMENT_THREAD_H
#define TOVIK_REPORTS_MANAGEMENT_THREAD_H

// Starts the thread; call it once. Returns false, with a trace line, when it cannot be created.
[[nodiscard]] bool StartManageThread();
// Waits for the thread's end and drops the reports not yet sent.
void JoinManageThread();

// The thread's body; ends, with 1, on gSvcManageThrdExit (after the pass in progress). gSendInfo must live
// until then. The argument is not used.
void* send_svc_manage_thread(void* argument);

// Called with the alarm's code before an alarm is sent. It has no effect today.
void alarm_log_message_trace(int code);

#endif
