#include "Tovik/alarms/alarm_body.h"

#include <cstdlib>
#include <new>
#include <string_view>
#include <utility>

#include "Tovik/config/config.h"
#include "base/format.h"
#include "charset/cp949.h"
#include "charset/cp949_length.h"
#include "charset/utf8_text.h"

namespace alarms {
namespace {

constexpr const char* NO_MEMORY = "no memory";
constexpr const char* DOES_NOT_CONVERT = "its text does not convert to UTF-8";

size_t SizeAsItIs(std::string_view text) {
  return text.size();
}

Alarm RepairedAlarm(const Alarm& alarm) {
  return {alarm.kind,
          charset::Repaired(alarm.title),
          charset::Repaired(alarm.label),
          charset::Repaired(alarm.message),
          charset::Repaired(alarm.host),
          alarm.attachment};
}

}  // namespace

const Writing CODE_PAGE_949 = {charset::Utf8LengthOfCp949, charset::Cp949PrefixWithinUtf8};
const Writing UTF8 = {SizeAsItIs, charset::Utf8Prefix};

std::string DateText(time_t now) {
  tm local{};
  localtime_r(&now, &local);
  return base::Format("%04d/%02d/%02d %02d:%02d:%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                      local.tm_hour, local.tm_min, local.tm_sec);
}

std::string FillLayout(Alarm alarm, Layout layout, const std::string& date, const Writing& writing) {
  std::string text = layout(alarm, date);
  if (writing.size(text) <= BODY_LIMIT) return text;
  alarm.title = writing.prefix(alarm.title, HEADING_LIMIT);
  alarm.label = writing.prefix(alarm.label, HEADING_LIMIT);
  const std::string message = std::exchange(alarm.message, std::string());
  const size_t frame = writing.size(layout(alarm, date));
  alarm.message = writing.prefix(message, BODY_LIMIT - frame);
  return layout(alarm, date);
}

base::UniqueText AlarmBody(const Alarm& alarm, Layout layout, time_t now, const char** reason) try {
  if (m_text_repair != 0) return RepairedBody(alarm, layout, UTF8, now, reason);
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

base::UniqueText RepairedBody(const Alarm& alarm, Layout layout, const Writing& writing, time_t now,
                              const char** reason) try {
  *reason = NO_MEMORY;
  std::string text = FillLayout(RepairedAlarm(alarm), layout, DateText(now), writing);
  return base::UniqueText(replaceAll(text.data(), "\n", "<br />"));
} catch (const std::bad_alloc&) {
  return nullptr;
}

}  // namespace alarms

namespace {

size_t CountOf(std::string_view text, std::string_view part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + part.size()))
    ++count;
  return count;
}

}  // namespace

char* replaceAll(char* str, const char* from, const char* to) {
  const std::string_view text(str);
  const std::string_view part(from);
  const std::string_view other(to);
  if (part.empty()) return str;
  // The sum cannot wrap: CountOf(text, part) * part.size() is at most text.size().
  const size_t count = CountOf(text, part);
  char* const result =
      static_cast<char*>(std::malloc(text.size() - part.size() * count + other.size() * count + 1));
  if (result == nullptr) return nullptr;
  char* out = result;
  size_t at = 0;
  for (size_t next = text.find(part); next != std::string_view::npos; next = text.find(part, at)) {
    out += text.copy(out, next - at, at);
    out += other.copy(out, other.size());
    at = next + part.size();
  }
  out += text.copy(out, text.size() - at, at);
  *out = '\0';
  return result;
}
