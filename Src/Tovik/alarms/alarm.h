// An alarm to people: one record, until a channel turns it into bytes (alarm_mail_body.h, webhook_body.h).
#ifndef TOVIK_ALARMS_ALARM_H
#define TOVIK_ALARMS_ALARM_H

#include <cstdint>
#include <string>

// Kinds of an alarm that mail and webhook show by a picture.
inline constexpr uint32_t ALARM_KIND_ERROR_LOG = 1;
inline constexpr uint32_t ALARM_KIND_RESTART = 2;
inline constexpr uint32_t ALARM_KIND_RESULT = 3;
inline constexpr uint32_t ALARM_KIND_THRESHOLD = 4;

// Texts are in code page 949 and not escaped.
struct Alarm {
  uint32_t kind;                     // any other than those above has no picture
  std::string title;                 // one line; the mail's subject too
  std::string label;                 // the service's short name
  std::string message;               // may be HTML; its newlines become "<br />"
  std::string host;                  // the host's IP address, as the message card shows it
  const char* attachment = nullptr;  // path of a file that the mail carries, borrowed; null: none
};

#endif
