// An alarm's mail by MAIL_URL: libcurl composes and delivers it.
#ifndef TOVIK_ALARMS_MAIL_BY_URL_H
#define TOVIK_ALARMS_MAIL_BY_URL_H

#include "Tovik/alarms/alarm.h"
#include "Tovik/alarms/enclosure.h"

namespace alarms {

// Delivers the alarm with this HTML body, and the file where there is one, to all recipients in use, with the
// login and sender of the configuration. 1 when the server took it for one recipient at least. Told on
// standard error, each on a line: recipients that were refused ("smtp refused: ..."), and for -1 what failed,
// with the server's words ("smtp failed: ...").
//
// Any thread. Gives up after MAIL_TIMEOUT seconds (60 when 0), and once a stop's grace is over. A server that
// took the mail and then does not say good-bye holds it up for some three seconds more.
int MailByUrl(const Alarm& alarm, const char* body, const Enclosure* enclosure);

}  // namespace alarms

#endif
