// From an alarm to the bytes of a mail or of a post. Nothing here has side effects: what is sent may as well
// be looked at beforehand.
#ifndef TOVIK_ALARMS_ALARM_BODY_H
#define TOVIK_ALARMS_ALARM_BODY_H

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

#include "Tovik/alarms/alarm.h"
#include "base/owners.h"

namespace alarms {

// Bytes of a body in UTF-8, before its newlines are replaced.
inline constexpr size_t BODY_LIMIT = 819'199;
// Bytes of a title or a label as UTF-8, once a body has to be cut: far above what any check sends.
inline constexpr size_t HEADING_LIMIT = 65'536;

// Puts an alarm and its date into the fixed text of a channel. That text is ASCII, so the whole is written as
// the alarm's texts are.
using Layout = std::string (*)(const Alarm& alarm, const std::string& date);

// How the texts of an alarm are written: their size in the body, and where they may be cut.
struct Writing {
  size_t (*size)(std::string_view text);  // of a filled layout
  // The longest beginning of a text that takes at most limit bytes there.
  std::string_view (*prefix)(std::string_view text, size_t limit);
};
extern const Writing CODE_PAGE_949;
extern const Writing UTF8;

// "2026/03/09 07:05:01", local time.
std::string DateText(time_t now);

// The filled layout, at most BODY_LIMIT bytes as UTF-8. What is too much is cut off the message's end, at a
// character, so that the layout stays whole.
std::string FillLayout(Alarm alarm, Layout layout, const std::string& date,
                       const Writing& writing = CODE_PAGE_949);

// The whole way: filled, cut, converted to UTF-8, newlines replaced by "<br />"; with TEXT_REPAIR as
// RepairedBody. When it is null, *reason says why: a text that does not convert, or no memory. Throws
// nothing.
base::UniqueText AlarmBody(const Alarm& alarm, Layout layout, time_t now, const char** reason);

// The same from texts that are made UTF-8 first, each line by itself (charset/repair.h): null only without
// memory. writing is UTF8, or that of a layout that writes the texts in another form.
base::UniqueText RepairedBody(const Alarm& alarm, Layout layout, const Writing& writing, time_t now,
                              const char** reason);

}  // namespace alarms

#endif
