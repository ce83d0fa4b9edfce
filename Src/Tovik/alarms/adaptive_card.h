// An alarm as an adaptive card in the envelope that chat workflows take.
#ifndef TOVIK_ALARMS_ADAPTIVE_CARD_H
#define TOVIK_ALARMS_ADAPTIVE_CARD_H

#include <string>

#include "Tovik/alarms/alarm_body.h"

namespace alarms {

// A Layout (alarm_body.h) with the title, label, picture and facts of the message card, each text escaped as
// JSON. Adaptive cards show no HTML, so the table of a daily result becomes one line per row.
std::string AdaptiveCard(const Alarm& alarm, const std::string& date);
extern const Writing ADAPTIVE_WRITING;

// The text of an HTML table: a line per row, " | " between its cells.
std::string TableWords(const std::string& html);

}  // namespace alarms

#endif
