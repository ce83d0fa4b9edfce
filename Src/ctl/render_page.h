// The page that shows every alarm side by side.
#ifndef CTL_RENDER_PAGE_H
#define CTL_RENDER_PAGE_H

#include <string>
#include <string_view>
#include <vector>

#include "ctl/render_alarm.h"

namespace ctl {

// A text inside HTML, also inside an attribute's double quotes.
std::string EscapedHtml(std::string_view text);
// Printable ASCII stays; every other byte, and a backslash, as \xNN.
std::string EscapedBytes(std::string_view bytes);

// One file of HTML in UTF-8, without scripts and links to elsewhere; the mails in frames that may run and
// fetch nothing. where: a line on what the alarms were made of.
std::string RenderedPage(const std::vector<RenderedAlarm>& alarms, std::string_view where);

}  // namespace ctl

#endif
