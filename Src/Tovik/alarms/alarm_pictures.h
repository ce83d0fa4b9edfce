// The pictures of the alarm kinds, as data URIs (RFC 2397) of PNG images.
#ifndef TOVIK_ALARMS_ALARM_PICTURES_H
#define TOVIK_ALARMS_ALARM_PICTURES_H

#include <array>
#include <cstdint>

namespace alarms {

struct AlarmPictures {
  uint32_t kind;
  const char* mail;     // small and flat, to be shown 40 pixels wide
  const char* webhook;  // larger, with gradients
};

// One row per kind that has pictures.
extern const std::array<AlarmPictures, 4> alarmPictures;

// The picture of a kind; the empty text for a kind that has none. text is a column of the table.
inline const char* PictureOf(uint32_t kind, const char* AlarmPictures::*text) {
  for (const AlarmPictures& pictures : alarmPictures)
    if (pictures.kind == kind) return pictures.*text;
  return "";
}

}  // namespace alarms

#endif
