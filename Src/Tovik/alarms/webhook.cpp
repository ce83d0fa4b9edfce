#include "Tovik/alarms/webhook.h"

#include <cstdio>
#include <ctime>
#include <new>

#include "Tovik/alarms/alarm_pictures.h"
#include "Tovik/alarms/alarm_text.h"
#include "Tovik/alarms/webhook_post.h"
#include "Tovik/core/config.h"
#include "Tovik/core/host.h"
#include "Tovik/core/trace.h"
#include "base/format.h"

namespace {

using alarms::AlarmText;

constexpr int64_t APPS_SLACK = 2;

std::string SlackForm(const AlarmText& alarm) {
  return base::Format(
      "payload={\t\t\t\t\"channel\": \"#test\",              \"username\": \"%s\",     \t        \"text\": "
      "\"%s %s<br />%s\",              \"icon_emoji\": \":ghost:\"         }",
      alarm.label.c_str(), alarm.title.c_str(), alarm.date.c_str(), alarm.message.c_str());
}

std::string TeamsCard(const AlarmText& alarm) {
  return base::Format(
      "{\"@type\": \"MessageCard\",\"@context\": \"http://schema.org/extensions"
      "\",\"themeColor\": \"0076D7\",\"summary\": \"%s\",\"sections\": [{   \"activityTitle\": \"%s\",   "
      "\"activitySubtitle\": \"%s\",   \"activityImage\": \"%s\",   \"facts\": [{       \"name\": "
      "\"Assigned IP\",       \"value\": \"%s\"    }, {       \"name\": \"Send date\",       \"value\": "
      "\"%s\"    }, {       \"name\": \"Message\",       \"value\": \"%s\"    }],    \"markdown\": true}]}",
      alarm.title.c_str(), alarm.title.c_str(), alarm.label.c_str(), alarm.picture,
      static_cast<const char*>(gIpaddr), alarm.date.c_str(), alarm.message.c_str());
}

base::UniqueText Body(const AlarmText& alarm, const char** reason) {
  return alarms::ConvertBody(alarms::FillLayout(alarm, m_webhook_apps == APPS_SLACK ? SlackForm : TeamsCard),
                             reason);
}

int Post(const char* body) {
  const alarms::UniqueCurl handle(curl_easy_init());
  if (handle == nullptr) {
    TRACE(TRACE_ERROR, "CUrl Error");
    return -1;
  }
  const CURLcode code = alarms::PostJson(handle.get(), static_cast<const char*>(m_webhook_server_url), body);
  if (code == CURLE_OK) return 1;
  std::fprintf(stderr, "curl_easy_perform() failed: %s\n", curl_easy_strerror(code));
  return -1;
}

}  // namespace

int SendAlarmWebHook(const char* title, uint32_t kind, const char* label, const char* message) {
  const char* reason = "no memory";
  try {
    const char* const picture = alarms::PictureOf(kind, &alarms::AlarmPictures::webhook);
    const base::UniqueText body =
        Body({title, label, message, alarms::DateText(std::time(nullptr)), picture}, &reason);
    if (body != nullptr) return Post(body.get());
  } catch (const std::bad_alloc&) {
    // Told below.
  }
  TRACE(TRACE_ERROR, "WebHook lost: %s, kind %u: %s", title, kind, reason);
  return -1;
}
