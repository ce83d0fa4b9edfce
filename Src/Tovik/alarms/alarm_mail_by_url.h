// An alarm's mail when MAIL_URL is set: libcurl composes and delivers it.
#ifndef TOVIK_ALARMS_ALARM_MAIL_BY_URL_H
#define TOVIK_ALARMS_ALARM_MAIL_BY_URL_H

#include "Tovik/alarms/alarm.h"
#include "Tovik/alarms/alarm_attachment.h"

namespace alarms {

// Whether MAIL_URL is set.
bool MailGoesByUrl();

// Delivers the alarm with this HTML body (UTF-8) and the file (may be null) to all recipients in use, with
// the configured login and sender. Returns 1 when the server took the mail for at least one recipient, else
// -1. Standard error gets a line for each refused recipient ("smtp refused: ...") and, for -1, a line that
// says what failed, with the server's words ("smtp failed: ...").
//
// Any thread. Gives up after MAIL_TIMEOUT seconds (60 when 0), and once a stop's grace is over. A server that
// took the mail and does not answer QUIT holds it up for some three seconds more.
int MailByUrl(const Alarm& alarm, const char* body, const Attachment* attachment);

}  // namespace alarms

#endif
