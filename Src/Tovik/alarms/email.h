// Alarms by e-mail.
#ifndef TOVIK_ALARMS_EMAIL_H
#define TOVIK_ALARMS_EMAIL_H

#include <cstdint>

int GetEMailList(const char* receiver_path, const char* reference_path, const char* blind_path);
int64_t GetTotalLine(const char* path);
int SendAlarmEmail(const char* title, uint32_t kind, const char* label, const char* message,
                   const char* attachment_path);

#endif
