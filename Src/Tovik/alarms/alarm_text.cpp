#include "Tovik/alarms/alarm_text.h"

#include <iterator>
#include <utility>

#include "Tovik/alarms/webhook.h"
#include "base/format.h"
#include "charset/cp949.h"

namespace alarms {
namespace {

constexpr size_t FIRST_CODE = 0x8141;  // of ksc2uni_code

struct Character {
  size_t bytes;
  size_t utf8_bytes;
};

// A lead byte takes the byte behind it whatever that is, as the conversion does.
Character CharacterAt(std::string_view text, size_t at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  if (lead < 0x80) return {1, 1};
  const size_t trail = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0;
  const size_t index = lead * size_t{256} + trail - FIRST_CODE;  // huge for a code below the first
  return {2, index < std::size(ksc2uni_code) && ksc2uni_code[index] > 0x7FF ? size_t{3} : size_t{2}};
}

}  // namespace

std::string DateText(time_t now) {
  tm local{};
  localtime_r(&now, &local);
  return base::Format("%04d/%02d/%02d %02d:%02d:%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                      local.tm_hour, local.tm_min, local.tm_sec);
}

size_t Utf8Length(std::string_view text) {
  size_t length = 0;
  for (size_t at = 0; at < text.size();) {
    const Character character = CharacterAt(text, at);
    at += character.bytes;
    length += character.utf8_bytes;
  }
  return length;
}

std::string_view PrefixWithin(std::string_view text, size_t limit) {
  size_t length = 0;
  size_t at = 0;
  while (at < text.size()) {
    const Character character = CharacterAt(text, at);
    if (at + character.bytes > text.size() || length + character.utf8_bytes > limit) break;
    at += character.bytes;
    length += character.utf8_bytes;
  }
  return text.substr(0, at);
}

std::string FillLayout(AlarmText alarm, Layout layout) {
  std::string text = layout(alarm);
  if (Utf8Length(text) <= BODY_LIMIT) return text;
  alarm.title = PrefixWithin(alarm.title, HEADING_LIMIT);
  alarm.label = PrefixWithin(alarm.label, HEADING_LIMIT);
  const std::string message = std::exchange(alarm.message, std::string());
  alarm.message = PrefixWithin(message, BODY_LIMIT - Utf8Length(layout(alarm)));
  return layout(alarm);
}

base::UniqueText ConvertBody(const std::string& text, const char** reason) {
  char* converted = nullptr;
  uint32_t length = 0;
  *reason = "its text does not convert to UTF-8";
  if (encode_UTF8(text.c_str(), static_cast<uint32_t>(text.size()), &converted, &length) != 0) return nullptr;
  const base::UniqueText owner(converted);
  *reason = "no memory";
  return base::UniqueText(replaceAll(converted, "\n", "<br />"));
}

}  // namespace alarms
