// An alarm to people: by e-mail and by webhook, each when its configuration key says so.
#ifndef TOVIK_ALARMS_RAISE_ALARM_H
#define TOVIK_ALARMS_RAISE_ALARM_H

#include <cstdint>
#include <string>

#include "Tovik/alarms/alarm_kind.h"

// Texts in code page 949.
struct Alarm {
  uint32_t kind;
  const char* label;
  const char* subjectCheck;  // the check's name as the subject gives it ...
  const char* tracedCheck;   // ... and as the trace lines do
  const char* process;       // the engine's name
  const char* body;
  const char* attachment = nullptr;  // path
};

inline constexpr const char* LABEL_MONITOR = "STT Service Moniter";

// "[ <host's IP> ] <process> Alarm Occured - <check>", 1,023 bytes at most.
std::string AlarmSubject(const Alarm& alarm);

// Mails, then posts, each on the caller's thread and followed by its trace line whatever the result.
void RaiseAlarm(const Alarm& alarm);

#endif
