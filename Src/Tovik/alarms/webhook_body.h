// What is posted for an alarm: a Teams message card, a Slack form, or (WEBHOOK_CARD) an adaptive card in the
// envelope that chat workflows take, with the title, label, picture and facts of the message card.
#ifndef TOVIK_ALARMS_WEBHOOK_BODY_H
#define TOVIK_ALARMS_WEBHOOK_BODY_H

#include <cstdint>
#include <ctime>
#include <string>

#include "Tovik/alarms/alarm.h"
#include "Tovik/alarms/alarm_body.h"
#include "base/unique_handles.h"

namespace alarms {

// One kind of chat service.
struct Chat {
  BodyLayout plain;            // texts not escaped; null: always escaped
  BodyLayout escaped;          // each text of the alarm escaped as JSON
  const BodyWriting& writing;  // of the escaped layout
  const char* success;         // the body with which it confirms a post; empty: any body
};
// apps is the value of WEBHOOK_APPS: 2 gives the Slack form, any other value the message card. adaptive
// (WEBHOOK_CARD) overrides both.
const Chat& ChatOf(int64_t apps, bool adaptive);

// The body of the post, as by AlarmBody (alarm_body.h). Texts are not escaped, so a quote or a backslash in
// one of them breaks the JSON. For the adaptive card, and with WEBHOOK_STRICT, they are made UTF-8 as by
// RepairedBody and escaped.
base::UniqueText WebHookBody(const Alarm& alarm, int64_t apps, time_t now, const char** reason);

// The text of an HTML table as an adaptive card shows it: a line per row, " | " between its cells.
std::string CardTableWords(const std::string& card_html);

}  // namespace alarms

#endif
