// Alarms by webhook: one POST per alarm to a chat service's incoming webhook.
#ifndef TOVIK_ALARMS_WEBHOOK_H
#define TOVIK_ALARMS_WEBHOOK_H

#include <cstdint>

#include "Tovik/alarms/alarm.h"

// Initialises libcurl (curl_global_init(3)) and ignores SIGPIPE, which a broken TLS connection would raise.
// Call it once, before the first thread starts. Returns 0, or -1 on failure.
[[nodiscard]] int AlarmTransportInit();

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

#endif
