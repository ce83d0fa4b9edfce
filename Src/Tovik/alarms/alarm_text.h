// The text of an alarm on its way into a mail or a webhook body.
#ifndef TOVIK_ALARMS_ALARM_TEXT_H
#define TOVIK_ALARMS_ALARM_TEXT_H

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

#include "base/owners.h"

namespace alarms {

// Bytes of a body in UTF-8, before its newlines are replaced.
inline constexpr size_t BODY_LIMIT = 819'199;
// Bytes of a title or a label as UTF-8, once a body has to be cut: far above what any check sends.
inline constexpr size_t HEADING_LIMIT = 65'536;

// What a layout is filled with. Texts in code page 949.
struct AlarmText {
  std::string title;
  std::string label;
  std::string message;
  std::string date;
  const char* picture;
};

// Puts an alarm into the fixed text of a channel.
using Layout = std::string (*)(const AlarmText& alarm);

// "2026/03/09 07:05:01", local time.
std::string DateText(time_t now);

// The length of a text in code page 949 once it is UTF-8. For a text that does not convert, some length.
size_t Utf8Length(std::string_view text);
// The longest beginning of a text in code page 949, whole characters only, that takes at most limit bytes of
// UTF-8.
std::string_view PrefixWithin(std::string_view text, size_t limit);

// The filled layout, in code page 949, at most BODY_LIMIT bytes as UTF-8. What is too much is cut off the
// message's end, so that the layout stays whole.
std::string FillLayout(AlarmText alarm, Layout layout);

// The text in UTF-8 with its newlines replaced by "<br />". When it is null, reason says why.
base::UniqueText ConvertBody(const std::string& text, const char** reason);

}  // namespace alarms

#endif
