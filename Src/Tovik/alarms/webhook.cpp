#include "Tovik/alarms/webhook.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <new>

#include "Tovik/alarms/delivery_notices.h"
#include "Tovik/alarms/webhook_body.h"
#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "Tovik/notices/notices.h"
#include "Tovik/trace.h"
#include "charset/utf8_repair.h"

namespace {

constexpr size_t HOOK_ANSWER_KEPT = 1000;
constexpr size_t HOOK_ANSWER_SHOWN = 300;
constexpr size_t HOOK_ANSWER_LIMIT = 1024UL * 1024;  // a longer one ends the transfer

// What the service said to a post.
struct HookAnswer {
  long answer_status = 0;
  std::string answer_body;      // its beginning
  bool answer_printed = false;  // all of the webhook's answer goes to standard output, too
};

struct HookAnswerTaker {
  HookAnswer* hook_answer;
  size_t answer_taken = 0;
};

size_t TakeHookAnswer(const char* answer_piece, size_t, size_t size, void* user) try {
  auto* const taker = static_cast<HookAnswerTaker*>(user);
  taker->answer_taken += size;
  std::string& answer_body = taker->hook_answer->answer_body;
  answer_body.append(answer_piece, std::min(size, HOOK_ANSWER_KEPT - answer_body.size()));
  if (taker->hook_answer->answer_printed) return std::fwrite(answer_piece, 1, size, stdout);
  return taker->answer_taken <= HOOK_ANSWER_LIMIT ? size : 0;
} catch (const std::bad_alloc&) {
  // Without memory for its words an answer is printed all the same.
  const bool answer_printed = static_cast<HookAnswerTaker*>(user)->hook_answer->answer_printed;
  return answer_printed ? std::fwrite(answer_piece, 1, size, stdout) : 0;
}

// POSTs post_body, announced as application/json, to url with a fresh handle, and gives up after so many
// seconds (0: as libcurl does). The answer's body goes to *hook_answer where there is one; without, or when
// *hook_answer asks for it, to standard output. CURLE_ABORTED_BY_CALLBACK when a stop cut it.
CURLcode PostJson(CURL* post, const char* url, const char* post_body, long post_seconds,
                  HookAnswer* hook_answer) {
  const alarms::UniqueCurlList post_headers(curl_slist_append(nullptr, "Content-Type: application/json"));
  if (post_headers == nullptr) return CURLE_OUT_OF_MEMORY;
  curl_easy_setopt(post, CURLOPT_URL, url);
  curl_easy_setopt(post, CURLOPT_POST, 1L);
  curl_easy_setopt(post, CURLOPT_POSTFIELDS, post_body);
  curl_easy_setopt(post, CURLOPT_HTTPHEADER, post_headers.get());
  alarms::LimitTransferTime(post, post_seconds);
  HookAnswerTaker taker{hook_answer};
  if (hook_answer != nullptr) {
    curl_easy_setopt(post, CURLOPT_WRITEFUNCTION, TakeHookAnswer);
    curl_easy_setopt(post, CURLOPT_WRITEDATA, &taker);
  }
  if (alarms::postWatch.before != nullptr) alarms::postWatch.before(post);
  const CURLcode post_code = alarms::Transfer(post);
  if (alarms::postWatch.behind != nullptr) alarms::postWatch.behind(post, post_code);
  if (hook_answer != nullptr) curl_easy_getinfo(post, CURLINFO_RESPONSE_CODE, &hook_answer->answer_status);
  return post_code;
}

const alarms::Chat& HookChatInUse() {
  return alarms::ChatOf(m_webhook_apps, m_webhook_card != 0);
}

// The post's failure as told on standard error; empty when the post was taken.
std::string PostFailure(CURLcode post_code, const HookAnswer& hook_answer) {
  if (post_code != CURLE_OK)
    return std::string("curl_easy_perform() failed: ") + curl_easy_strerror(post_code);
  if (m_webhook_strict == 0) return {};
  const std::string post_denial =
      alarms::PostDenial(hook_answer.answer_status, hook_answer.answer_body, HookChatInUse().success);
  return post_denial.empty() ? post_denial : "webhook failed: " + post_denial;
}

// Without WEBHOOK_STRICT no failure is one that the service answers, and still nobody has read the post.
std::string PostLoss(CURLcode post_code, const HookAnswer& hook_answer) {
  if (post_code != CURLE_OK) return curl_easy_strerror(post_code);
  return alarms::PostDenial(hook_answer.answer_status, hook_answer.answer_body,
                            m_webhook_strict != 0 ? HookChatInUse().success : "");
}

int Post(const Alarm& alarm, const char* post_body) {
  const alarms::UniqueCurl post(curl_easy_init());
  if (post == nullptr) {
    TRACE(TRACE_ERROR, "CUrl Error");
    return -1;
  }
  HookAnswer hook_answer;
  hook_answer.answer_printed = m_webhook_strict == 0;
  const bool answer_asked = m_webhook_strict != 0 || notices::On();
  const CURLcode post_code = PostJson(post.get(), static_cast<const char*>(m_webhook_server_url), post_body,
                                      m_webhook_timeout, answer_asked ? &hook_answer : nullptr);
  const std::string post_loss = notices::On() ? PostLoss(post_code, hook_answer) : "";
  if (!post_loss.empty()) alarms::TellPostLost(alarm, post_loss);
  const std::string post_failure = PostFailure(post_code, hook_answer);
  if (post_failure.empty()) return 1;
  std::fprintf(stderr, "%s\n", post_failure.c_str());
  return -1;
}

}  // namespace

namespace alarms {

PostWatch postWatch;

std::string PostDenial(long post_status, std::string_view body, std::string_view expected) {
  const std::string answer_words = charset::OneLine(body, HOOK_ANSWER_SHOWN);
  const bool post_taken = post_status < 300 && (expected.empty() || answer_words == expected);
  if (post_taken) return {};
  return std::to_string(post_status) + ": " + (answer_words.empty() ? "no words" : answer_words);
}

}  // namespace alarms

int PostAlarm(const Alarm& alarm) try {
  const char* post_lost_reason = nullptr;
  const base::UniqueText post_body =
      alarms::WebHookBody(alarm, m_webhook_apps, std::time(nullptr), &post_lost_reason);
  if (post_body != nullptr) return Post(alarm, post_body.get());
  TRACE(TRACE_ERROR, "WebHook lost: %s, kind %u: %s", alarm.title.c_str(), alarm.kind, post_lost_reason);
  alarms::TellPostLost(alarm, post_lost_reason);
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
