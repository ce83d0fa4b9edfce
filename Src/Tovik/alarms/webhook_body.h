// What is posted for an alarm: a Teams message card, a Slack form, or an adaptive card (WEBHOOK_CARD).
#ifndef TOVIK_ALARMS_WEBHOOK_BODY_H
#define TOVIK_ALARMS_WEBHOOK_BODY_H

#include <cstdint>
#include <ctime>

#include "Tovik/alarms/alarm.h"
#include "Tovik/alarms/alarm_body.h"
#include "base/owners.h"

namespace alarms {

// One kind of chat service.
struct Chat {
  Layout plain;            // null: there is no such form
  Layout escaped;          // with each text of the alarm escaped as JSON
  const Writing& writing;  // of the escaped one
  const char* success;     // what it answers to a post that it takes; empty: anything
};
// apps is the value of WEBHOOK_APPS: 2 gives the form, any other the card; adaptive: WEBHOOK_CARD, before
// that.
const Chat& ChatOf(int64_t apps, bool adaptive);

// As AlarmBody (alarm_body.h). A quote or a backslash in one of the alarm's texts breaks the JSON around it,
// but for the adaptive card and with WEBHOOK_STRICT: texts are then made UTF-8, as RepairedBody does, and
// escaped.
base::UniqueText WebHookBody(const Alarm& alarm, int64_t apps, time_t now, const char** reason);

}  // namespace alarms

#endif
