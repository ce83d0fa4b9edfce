#include "Tovik/alarms/alarm_body.h"

#include <new>
#include <utility>

#include "Tovik/alarms/replace_all.h"
#include "base/format.h"
#include "charset/cp949.h"
#include "charset/cp949_length.h"

namespace alarms {
namespace {

constexpr const char* NO_MEMORY = "no memory";
constexpr const char* DOES_NOT_CONVERT = "its text does not convert to UTF-8";

}  // namespace

std::string DateText(time_t now) {
  tm local{};
  localtime_r(&now, &local);
  return base::Format("%04d/%02d/%02d %02d:%02d:%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                      local.tm_hour, local.tm_min, local.tm_sec);
}

std::string FillLayout(Alarm alarm, Layout layout, const std::string& date) {
  std::string text = layout(alarm, date);
  if (charset::Utf8Length(text) <= BODY_LIMIT) return text;
  alarm.title = charset::PrefixWithinUtf8(alarm.title, HEADING_LIMIT);
  alarm.label = charset::PrefixWithinUtf8(alarm.label, HEADING_LIMIT);
  const std::string message = std::exchange(alarm.message, std::string());
  const size_t frame = charset::Utf8Length(layout(alarm, date));
  alarm.message = charset::PrefixWithinUtf8(message, BODY_LIMIT - frame);
  return layout(alarm, date);
}

base::UniqueText AlarmBody(const Alarm& alarm, Layout layout, time_t now, const char** reason) try {
  const std::string text = FillLayout(alarm, layout, DateText(now));
  char* converted = nullptr;
  uint32_t length = 0;
  *reason = DOES_NOT_CONVERT;
  if (encode_UTF8(text.c_str(), static_cast<uint32_t>(text.size()), &converted, &length) != 0) return nullptr;
  const base::UniqueText owner(converted);
  *reason = NO_MEMORY;
  return base::UniqueText(replaceAll(converted, "\n", "<br />"));
} catch (const std::bad_alloc&) {
  *reason = NO_MEMORY;
  return nullptr;
}

}  // namespace alarms
