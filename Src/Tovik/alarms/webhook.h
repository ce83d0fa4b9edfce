// Alarms by webhook.
#ifndef TOVIK_ALARMS_WEBHOOK_H
#define TOVIK_ALARMS_WEBHOOK_H

#include <cstdint>

char* replaceAll(char* str, const char* from, const char* to);
int SendAlarmWebHook(const char* title, uint32_t kind, const char* label, const char* message);

#endif
