// The page that shows every alarm side by side.
#ifndef CTL_RENDER_PAGE_H
#define CTL_RENDER_PAGE_H

#include <string>
#include <string_view>
#include <vector>

#include "ctl/render_alarm.h"

namespace ctl {

// Escapes a text for HTML, also for an attribute in double quotes.
std::string EscapedHtml(std::string_view text);
// Printable ASCII stays; every other byte, and the backslash, becomes \xNN.
std::string EscapedBytes(std::string_view bytes);

// One HTML file in UTF-8, without scripts and outside links. Mails stand in frames that may run and fetch
// nothing. where: a line that says which configuration the alarms were made from.
std::string RenderedPage(const std::vector<RenderedAlarm>& alarms, std::string_view where);

}  // namespace ctl

#endif
