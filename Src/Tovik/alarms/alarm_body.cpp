#include "Tovik/alarms/alarm_body.h"

#include <new>
#include <string_view>
#include <utility>

#include "Tovik/alarms/replace_all.h"
#include "Tovik/config/config.h"
#include "base/format.h"
#include "charset/cp949.h"
#include "charset/cp949_length.h"
#include "charset/utf8_repair.h"
#include "charset/utf8_text.h"

namespace alarms {
namespace {

constexpr const char* NO_BODY_MEMORY = "no memory";
constexpr const char* BODY_DOES_NOT_CONVERT = "its text does not convert to UTF-8";

Alarm RepairedAlarm(const Alarm& alarm) {
  return {alarm.kind,
          charset::Repaired(alarm.title),
          charset::Repaired(alarm.label),
          charset::Repaired(alarm.message),
          charset::Repaired(alarm.host),
          alarm.attachment};
}

}  // namespace

const BodyWriting BODY_IN_CODE_PAGE_949 = {charset::Utf8LengthOfCp949, charset::Cp949PrefixWithinUtf8};
const BodyWriting BODY_IN_UTF8 = {BytesOfBody, charset::Utf8Prefix};

size_t BytesOfBody(std::string_view body) {
  return body.size();
}

std::string BodyDate(time_t now) {
  tm body_day{};
  localtime_r(&now, &body_day);
  return base::Format("%04d/%02d/%02d %02d:%02d:%02d", body_day.tm_year + 1900, body_day.tm_mon + 1,
                      body_day.tm_mday, body_day.tm_hour, body_day.tm_min, body_day.tm_sec);
}

std::string FillBodyLayout(Alarm alarm, BodyLayout layout, const std::string& date,
                           const BodyWriting& writing) {
  std::string body = layout(alarm, date);
  if (writing.size(body) <= BODY_LIMIT) return body;
  alarm.title = writing.prefix(alarm.title, BODY_HEADING_LIMIT);
  alarm.label = writing.prefix(alarm.label, BODY_HEADING_LIMIT);
  const std::string message = std::exchange(alarm.message, std::string());
  const size_t body_frame = writing.size(layout(alarm, date));
  alarm.message = writing.prefix(message, BODY_LIMIT - body_frame);
  return layout(alarm, date);
}

base::UniqueText AlarmBody(const Alarm& alarm, BodyLayout layout, time_t now, const char** reason) try {
  if (m_text_repair != 0) return RepairedBody(alarm, layout, BODY_IN_UTF8, now, reason);
  const std::string body = FillBodyLayout(alarm, layout, BodyDate(now));
  char* utf8_body = nullptr;
  uint32_t body_length = 0;
  *reason = BODY_DOES_NOT_CONVERT;
  if (encode_UTF8(body.c_str(), static_cast<uint32_t>(body.size()), &utf8_body, &body_length) != 0)
    return nullptr;
  const base::UniqueText body_owner(utf8_body);
  *reason = NO_BODY_MEMORY;
  return base::UniqueText(replaceAll(utf8_body, "\n", "<br />"));
} catch (const std::bad_alloc&) {
  *reason = NO_BODY_MEMORY;
  return nullptr;
}

base::UniqueText RepairedBody(const Alarm& alarm, BodyLayout layout, const BodyWriting& writing, time_t now,
                              const char** reason) try {
  *reason = NO_BODY_MEMORY;
  std::string body = FillBodyLayout(RepairedAlarm(alarm), layout, BodyDate(now), writing);
  return base::UniqueText(replaceAll(body.data(), "\n", "<br />"));
} catch (const std::bad_alloc&) {
  return nullptr;
}

}  // namespace alarms
