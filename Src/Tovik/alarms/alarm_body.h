// Turns an alarm into the bytes of a mail or of a post. Nothing here has side effects, so alarms can be shown
// without being sent.
#ifndef TOVIK_ALARMS_ALARM_BODY_H
#define TOVIK_ALARMS_ALARM_BODY_H

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

#include "Tovik/alarms/alarm.h"
#include "base/unique_handles.h"

namespace alarms {

// Bytes of a body in UTF-8, before its newlines are replaced.
inline constexpr size_t BODY_LIMIT = 819'199;
// The longest title or label, in bytes of UTF-8, of a body that has to be cut. No check sends one nearly as
// long.
inline constexpr size_t BODY_HEADING_LIMIT = 65'536;

// Puts an alarm and its date into the fixed text of a channel. That text is ASCII, so the result has the
// encoding of the alarm's texts.
using BodyLayout = std::string (*)(const Alarm& alarm, const std::string& date);

// The encoding of an alarm's texts: how large they are in the body, and where they may be cut.
struct BodyWriting {
  size_t (*body_size)(std::string_view body);  // of a filled body layout
  // The longest beginning of a text that takes at most limit bytes in the body.
  std::string_view (*body_prefix)(std::string_view text, size_t limit);
};
// Of a body whose texts are in it as they are.
size_t BytesOfBody(std::string_view body);
extern const BodyWriting BODY_IN_CODE_PAGE_949;
extern const BodyWriting BODY_IN_UTF8;

// "2026/03/09 07:05:01", local time.
std::string BodyDate(time_t body_time);

// The filled layout, at most BODY_LIMIT bytes as UTF-8. When it would be longer, the end of the message is
// cut off, between two characters, so that the layout stays whole.
std::string FillBodyLayout(Alarm alarm, BodyLayout body_layout, const std::string& body_date,
                           const BodyWriting& writing = BODY_IN_CODE_PAGE_949);

// The finished body: the layout filled and cut, converted to UTF-8, newlines replaced by "<br />". With
// TEXT_REPAIR the same as RepairedBody. Returns null on failure; *reason, a constant text, then says why: a
// text does not convert, or no memory. Throws nothing.
base::UniqueText AlarmBody(const Alarm& alarm, BodyLayout body_layout, time_t body_time, const char** reason);

// The same, but the texts are made UTF-8 first, each line by itself (charset/utf8_repair.h), so it is null
// only when there is no memory. writing is BODY_IN_UTF8, or that of a layout that escapes the texts.
base::UniqueText RepairedBody(const Alarm& alarm, BodyLayout body_layout, const BodyWriting& writing,
                              time_t body_time, const char** reason);

}  // namespace alarms

#endif
