// Alarms by webhook: one POST per alarm to a chat service's incoming webhook, with libcurl's defaults but for
// WEBHOOK_TIMEOUT.
#ifndef TOVIK_ALARMS_WEBHOOK_H
#define TOVIK_ALARMS_WEBHOOK_H

#include <cstdint>
#include <string>
#include <string_view>

#include "Tovik/alarms/alarm.h"
#include "Tovik/alarms/curl_transfer.h"

// Posts an alarm to WEBHOOK_SERVER_URL, in the form that webhook_body.h describes, and waits for the answer.
// The attachment is not sent.
//
// Returns 1 when the transfer went through, whatever the HTTP status (with WEBHOOK_STRICT: when the answer
// says that the post was taken), else -1. A failure is told on standard error. When a text does not convert,
// that is traced at level 1 and nothing is posted.
//
// Any thread. Blocks for WEBHOOK_TIMEOUT seconds at most, or when that is 0 as long as libcurl's defaults
// allow (300 s to connect, then no limit), and once a stop is requested no longer than its grace. Without
// WEBHOOK_STRICT the service's answer goes to standard output.
int PostAlarm(const Alarm& alarm);
// The same for an alarm in pieces, with this host's address. No text may be null.
int SendAlarmWebHook(const char* title, uint32_t kind, const char* label, const char* message);

namespace alarms {

// Hooks called before and after each post, for a program that wants to hear the service. Null by default.
struct PostWatch {
  void (*before)(CURL* post) = nullptr;
  void (*behind)(CURL* post, CURLcode code) = nullptr;
};
extern PostWatch postWatch;

// What a service's answer means. Empty when it says that the post was taken; else the status and the answer's
// words, one line of at most 300 bytes: "429: slow down". Redirections are not followed, so they count as not
// taken. expected is the body with which the service confirms a post; when it is empty, any body will do.
std::string PostDenial(long post_status, std::string_view body, std::string_view expected);

}  // namespace alarms

#endif
