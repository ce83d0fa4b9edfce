// What is posted for an alarm: a Teams message card, or a Slack form. A quote or a backslash in one of the
// alarm's texts breaks the JSON around it.
#ifndef TOVIK_ALARMS_WEBHOOK_BODY_H
#define TOVIK_ALARMS_WEBHOOK_BODY_H

#include <cstdint>
#include <ctime>

#include "Tovik/alarms/alarm.h"
#include "base/owners.h"

namespace alarms {

// As AlarmBody (alarm_body.h). apps is the value of WEBHOOK_APPS: 2 gives the form, any other the card.
base::UniqueText WebHookBody(const Alarm& alarm, int64_t apps, time_t now, const char** reason);

}  // namespace alarms

#endif
