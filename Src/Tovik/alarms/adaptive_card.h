// An alarm as an adaptive card in the envelope that chat workflows take.
#ifndef TOVIK_ALARMS_ADAPTIVE_CARD_H
#define TOVIK_ALARMS_ADAPTIVE_CARD_H

#include <string>

#include "Tovik/alarms/alarm_body.h"

namespace alarms {

// A Layout: title, label, picture and facts as the message card has them, each text escaped as JSON. Such a
// card shows no HTML: a result's table becomes a line for each of its rows.
std::string AdaptiveCard(const Alarm& alarm, const std::string& date);
extern const Writing ADAPTIVE_WRITING;

// The words of a table in HTML: a line for each row, " | " between its cells.
std::string TableWords(const std::string& html);

}  // namespace alarms

#endif
