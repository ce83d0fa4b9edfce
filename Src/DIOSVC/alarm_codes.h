// The codes of alarms to a management server. This is the only list of them.
#ifndef DIOSVC_ALARM_CODES_H
#define DIOSVC_ALARM_CODES_H

#include <cstdint>

inline constexpr int ALARM_START = 0;
inline constexpr int ALARM_MEMORY = 1;
inline constexpr int ALARM_CPU = 2;
inline constexpr int ALARM_RESTART = 3;
inline constexpr int CODE_CHANNEL_STATUS = 4;  // 4 and 5 accompany requests that carry no alarm
inline constexpr int CODE_RESOURCE_USAGE = 5;
inline constexpr int ALARM_CHANNEL = 6;

// The text in an alarm's frame; empty for a code without a text.
const char* AlarmText(int64_t alarm_code);

#endif
