// Alarms by e-mail: an HTML mail in one layout to the recipients of three files (recipients.h).
#ifndef TOVIK_ALARMS_ALARM_MAIL_H
#define TOVIK_ALARMS_ALARM_MAIL_H

#include <cstdint>

#include "Tovik/alarms/alarm.h"

// Mails an alarm through the configured server to all recipients in use and waits until it is accepted. The
// subject is the title as it is, in code page 949; with MAIL_URL it is encoded as UTF-8.
//
// Returns 1 when the server took the mail, else -1. A failure of the session is told on standard error. When
// a text does not convert to UTF-8, that is traced at level 1 and nothing is sent.
//
// Any thread. Blocks for the time-outs of the mail session (smtp.h; with MAIL_URL, alarm_mail_by_url.h), and
// once a stop is requested no longer than its grace.
int MailAlarm(const Alarm& alarm);
// The same for an alarm in pieces. mail_attachment_path may be null, the texts may not.
int SendAlarmEmail(const char* title, uint32_t kind, const char* label, const char* message,
                   const char* mail_attachment_path);

#endif
