// The date of a mail.
#ifndef SMTP_SMTP_DATE_H
#define SMTP_SMTP_DATE_H

#include <ctime>

// Now as an RFC 5322 date, 31 characters. 0, or -1 when there is none. The zone counts whole hours: minutes
// of it are dropped (+0530 reads +0500), and summer time is not part of it.
int smtp_date_rfc_2822(char* destination);
// The same of a local time that is offset seconds ahead of UTC.
int smtp_date_format(const tm& local, long offset, char* destination);

#endif
