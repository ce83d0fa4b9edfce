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

Alarm RepairedBodyTexts(const Alarm& alarm) {
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

std::string BodyDate(time_t body_time) {
  tm body_day{};
  localtime_r(&body_time, &body_day);
  return base::Format("%04d/%02d/%02d %02d:%02d:%02d", body_day.tm_year + 1900, body_day.tm_mon + 1,
                      body_day.tm_mday, body_day.tm_hour, body_day.tm_min, body_day.tm_sec);
}

std::string FillBodyLayout(Alarm alarm, BodyLayout body_layout, const std::string& body_date,
                           const BodyWriting& writing) {
  std::string body = body_layout(alarm, body_date);
  if (writing.body_size(body) <= BODY_LIMIT) return body;
  alarm.title = writing.body_prefix(alarm.title, BODY_HEADING_LIMIT);
  alarm.label = writing.body_prefix(alarm.label, BODY_HEADING_LIMIT);
  const std::string body_message = std::exchange(alarm.message, std::string());
  const size_t body_frame = writing.body_size(body_layout(alarm, body_date));
  alarm.message = writing.body_prefix(body_message, BODY_LIMIT - body_frame);
  return body_layout(alarm, body_date);
}

base::UniqueText AlarmBody(const Alarm& alarm, BodyLayout body_layout, time_t body_time,
                           const char** reason) try {
  if (m_text_repair != 0) return RepairedBody(alarm, body_layout, BODY_IN_UTF8, body_time, reason);
  const std::string body = FillBodyLayout(alarm, body_layout, BodyDate(body_time));
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

base::UniqueText RepairedBody(const Alarm& alarm, BodyLayout body_layout, const BodyWriting& writing,
                              time_t body_time, const char** reason) try {
  *reason = NO_BODY_MEMORY;
  std::string body = FillBodyLayout(RepairedBodyTexts(alarm), body_layout, BodyDate(body_time), writing);
  return base::UniqueText(replaceAll(body.data(), "\n", "<br />"));
} catch (const std::bad_alloc&) {
  return nullptr;
}

}  // namespace alarms
