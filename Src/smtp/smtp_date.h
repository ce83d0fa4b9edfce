// The date of a mail.
#ifndef SMTP_SMTP_DATE_H
#define SMTP_SMTP_DATE_H

#include <ctime>

// Writes the present time as an RFC 5322 date of 31 characters and a terminator. Returns 0, or -1 when the
// time cannot be told. The zone is given in whole hours, without its minutes (+0530 reads +0500) and without
// summer time.
int smtp_date_rfc_2822(char* destination);
// The same for a local time that is offset seconds ahead of UTC.
int smtp_date_format(const tm& local, long offset, char* destination);

#endif
