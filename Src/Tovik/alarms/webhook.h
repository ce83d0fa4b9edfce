// Alarms by webhook: one POST per alarm to a chat service's incoming webhook, as a Teams message card or,
// with WEBHOOK_APPS 2, as a Slack form.
#ifndef TOVIK_ALARMS_WEBHOOK_H
#define TOVIK_ALARMS_WEBHOOK_H

#include <cstdint>

// Readies libcurl (curl_global_init(3)) and ignores SIGPIPE, which a TLS connection that breaks would raise.
// Once, at start-up, before the first thread. 0, or -1.
int AlarmTransportInit();

// A copy of str in which every occurrence of from, left to right and without overlap, is replaced by to: the
// caller frees it with free(). str itself when from is empty; null without memory.
char* replaceAll(char* str, const char* from, const char* to);

// Posts an alarm to WEBHOOK_SERVER_URL and waits for the answer. The texts are in code page 949 and go into
// the body as they are, neither quotes nor backslashes escaped; the body is converted to UTF-8 as one text,
// and its newlines become "<br />". A message that is too long for a body of 819,199 bytes before that last
// step is cut at a character. kind is one of alarm_kind.h, another one has no picture.
//
// 1 when the transfer went through, whatever the HTTP status; -1 otherwise: a transfer error is told on
// standard error, a text that does not convert is traced at level 1 and nothing is posted.
//
// Any thread; blocks for as long as libcurl's defaults allow (300 s to connect, then no limit), but once a
// stop is requested no longer than its grace. What the service answers goes to standard output.
int SendAlarmWebHook(const char* title, uint32_t kind, const char* label, const char* message);

#endif
