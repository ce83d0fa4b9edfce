// Kinds of an alarm that mail and webhook show by a picture.
#ifndef TOVIK_ALARMS_ALARM_KIND_H
#define TOVIK_ALARMS_ALARM_KIND_H

#include <cstdint>

inline constexpr uint32_t ALARM_KIND_ERROR_LOG = 1;
inline constexpr uint32_t ALARM_KIND_RESTART = 2;
inline constexpr uint32_t ALARM_KIND_RESULT = 3;
inline constexpr uint32_t ALARM_KIND_THRESHOLD = 4;

#endif
