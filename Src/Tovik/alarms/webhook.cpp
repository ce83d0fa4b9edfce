#include "Tovik/alarms/webhook.h"

#include <cstdio>
#include <ctime>
#include <new>

#include "Tovik/alarms/webhook_body.h"
#include "Tovik/alarms/webhook_post.h"
#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "Tovik/trace.h"

namespace {

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

int PostAlarm(const Alarm& alarm) {
  const char* reason = nullptr;
  const base::UniqueText body = alarms::WebHookBody(alarm, m_webhook_apps, std::time(nullptr), &reason);
  if (body != nullptr) return Post(body.get());
  TRACE(TRACE_ERROR, "WebHook lost: %s, kind %u: %s", alarm.title.c_str(), alarm.kind, reason);
  return -1;
}

int SendAlarmWebHook(const char* title, uint32_t kind, const char* label, const char* message) try {
  return PostAlarm({kind, title, label, message, gIpaddr});
} catch (const std::bad_alloc&) {
  TRACE(TRACE_ERROR, "WebHook lost: %s, kind %u: no memory", title, kind);
  return -1;
}
