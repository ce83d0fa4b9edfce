// How checks ask for a report to the management servers.
#ifndef TOVIK_REPORTS_REPORT_REQUEST_H
#define TOVIK_REPORTS_REPORT_REQUEST_H

// Posts a report of this type and code (DIOSVC/report_types.h); an unknown type does nothing. Returns when
// the report lies in the mailbox, after some 20 ms, or in the queue, at once (report_mailbox.h). When the
// thread that fills the mailbox cannot be created, the report is lost and that is traced. Any thread.
void send_request(int requestedType, int requestedCode);
// The body of the thread that fills the mailbox. request points to two int: type and code.
void* send_request_thread(void* request);

#endif
