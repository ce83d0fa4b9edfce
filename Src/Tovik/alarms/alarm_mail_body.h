// The HTML of an alarm's mail.
#ifndef TOVIK_ALARMS_ALARM_MAIL_BODY_H
#define TOVIK_ALARMS_ALARM_MAIL_BODY_H

#include <ctime>

#include "Tovik/alarms/alarm.h"
#include "base/unique_handles.h"

namespace alarms {

// As AlarmBody (alarm_body.h), in the mail's layout.
base::UniqueText MailBody(const Alarm& alarm, time_t mail_time, const char** reason);

}  // namespace alarms

#endif
