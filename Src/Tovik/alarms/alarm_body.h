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
inline constexpr size_t HEADING_LIMIT = 65'536;

// Puts an alarm and its date into the fixed text of a channel. That text is ASCII, so the result has the
// encoding of the alarm's texts.
using Layout = std::string (*)(const Alarm& alarm, const std::string& date);

// The encoding of an alarm's texts: how large they are in the body, and where they may be cut.
struct Writing {
  size_t (*size)(std::string_view text);  // of a filled layout
  // The longest beginning of a text that takes at most limit bytes in the body.
  std::string_view (*prefix)(std::string_view text, size_t limit);
};
extern const Writing CODE_PAGE_949;
extern const Writing UTF8;

// "2026/03/09 07:05:01", local time.
std::string DateText(time_t now);

// The filled layout, at most BODY_LIMIT bytes as UTF-8. When it would be longer, the end of the message is
// cut off, between two characters, so that the layout stays whole.
std::string FillLayout(Alarm alarm, Layout layout, const std::string& date,
                       const Writing& writing = CODE_PAGE_949);

// The finished body: the layout filled and cut, converted to UTF-8, newlines replaced by "<br />". With
// TEXT_REPAIR the same as RepairedBody. Returns null on failure; *reason, a constant text, then says why: a
// text does not convert, or no memory. Throws nothing.
base::UniqueText AlarmBody(const Alarm& alarm, Layout layout, time_t now, const char** reason);

// The same, but the texts are made UTF-8 first, each line by itself (charset/utf8_text.h), so it is null only
// when there is no memory. writing is UTF8, or that of a layout that escapes the texts.
base::UniqueText RepairedBody(const Alarm& alarm, Layout layout, const Writing& writing, time_t now,
                              const char** reason);

}  // namespace alarms

// Returns a copy of str with every occurrence of from, left to right and without overlap, replaced by to. The
// caller frees the copy with free(). Returns str itself when from is empty, null without memory.
char* replaceAll(char* str, const char* from, const char* to);

#endif
