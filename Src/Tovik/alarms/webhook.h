// Alarms by webhook: one POST per alarm to a chat service's incoming webhook.
#ifndef TOVIK_ALARMS_WEBHOOK_H
#define TOVIK_ALARMS_WEBHOOK_H

#include <cstdint>

#include "Tovik/alarms/alarm.h"

// Readies libcurl (curl_global_init(3)) and ignores SIGPIPE, which a TLS connection that breaks would raise.
// Once, at start-up, before the first thread. 0, or -1.
[[nodiscard]] int AlarmTransportInit();

// Posts an alarm, as WEBHOOK_APPS says (webhook_body.h), to WEBHOOK_SERVER_URL and waits for the answer. The
// attachment stays behind.
//
// 1 when the transfer went through, whatever the HTTP status; -1 otherwise: a transfer error is told on
// standard error, a text that does not convert is traced at level 1 and nothing is posted.
//
// Any thread; blocks for as long as libcurl's defaults allow (300 s to connect, then no limit), but once a
// stop is requested no longer than its grace. What the service answers goes to standard output.
int PostAlarm(const Alarm& alarm);
// The same for an alarm in pieces, of this host. Texts are not null.
int SendAlarmWebHook(const char* title, uint32_t kind, const char* label, const char* message);

#endif
