#include "Tovik/alarms/webhook.h"

#include <cstdio>
#include <ctime>
#include <new>

#include "Tovik/alarms/delivery_notices.h"
#include "Tovik/alarms/webhook_answer.h"
#include "Tovik/alarms/webhook_body.h"
#include "Tovik/alarms/webhook_post.h"
#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "Tovik/notices/notices.h"
#include "Tovik/trace.h"

namespace {

const alarms::Chat& ChatInUse() {
  return alarms::ChatOf(m_webhook_apps, m_webhook_card != 0);
}

// The post's failure as told on standard error; empty when the post was taken.
std::string Failure(CURLcode code, const alarms::Answer& answer) {
  if (code != CURLE_OK) return std::string("curl_easy_perform() failed: ") + curl_easy_strerror(code);
  if (m_webhook_strict == 0) return {};
  const std::string denial = alarms::Denial(answer.status, answer.body, ChatInUse().success);
  return denial.empty() ? denial : "webhook failed: " + denial;
}

// Without WEBHOOK_STRICT no failure is one that the service answers, and still nobody has read the post.
std::string Loss(CURLcode code, const alarms::Answer& answer) {
  if (code != CURLE_OK) return curl_easy_strerror(code);
  return alarms::Denial(answer.status, answer.body, m_webhook_strict != 0 ? ChatInUse().success : "");
}

int Post(const Alarm& alarm, const char* body) {
  const alarms::UniqueCurl handle(curl_easy_init());
  if (handle == nullptr) {
    TRACE(TRACE_ERROR, "CUrl Error");
    return -1;
  }
  alarms::Answer answer;
  answer.printed = m_webhook_strict == 0;
  const bool asked = m_webhook_strict != 0 || notices::On();
  const CURLcode code = alarms::PostJson(handle.get(), static_cast<const char*>(m_webhook_server_url), body,
                                         m_webhook_timeout, asked ? &answer : nullptr);
  const std::string loss = notices::On() ? Loss(code, answer) : "";
  if (!loss.empty()) alarms::TellPostLost(alarm, loss);
  const std::string failure = Failure(code, answer);
  if (failure.empty()) return 1;
  std::fprintf(stderr, "%s\n", failure.c_str());
  return -1;
}

}  // namespace

int PostAlarm(const Alarm& alarm) try {
  const char* reason = nullptr;
  const base::UniqueText body = alarms::WebHookBody(alarm, m_webhook_apps, std::time(nullptr), &reason);
  if (body != nullptr) return Post(alarm, body.get());
  TRACE(TRACE_ERROR, "WebHook lost: %s, kind %u: %s", alarm.title.c_str(), alarm.kind, reason);
  alarms::TellPostLost(alarm, reason);
  return -1;
} catch (const std::bad_alloc&) {
  TRACE(TRACE_ERROR, "WebHook lost: %s, kind %u: no memory", alarm.title.c_str(), alarm.kind);
  return -1;
}

int SendAlarmWebHook(const char* title, uint32_t kind, const char* label, const char* message) try {
  return PostAlarm({kind, title, label, message, gIpaddr});
} catch (const std::bad_alloc&) {
  TRACE(TRACE_ERROR, "WebHook lost: %s, kind %u: no memory", title, kind);
  return -1;
}
