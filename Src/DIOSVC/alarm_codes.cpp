#include "DIOSVC/alarm_codes.h"

#include <algorithm>
#include <array>

namespace {

struct AlarmCode {
  int code;
  const char* text;
};
constexpr std::array<AlarmCode, 5> ALARM_CODES = {{
    {ALARM_START, "Tovik Start"},
    {ALARM_MEMORY, "Memory Check"},
    {ALARM_CPU, "Cpu Check"},
    {ALARM_RESTART, "DunraSTT Check"},
    {ALARM_CHANNEL, "Work Channel Check"},
}};

}  // namespace

const char* AlarmText(int64_t code) {
  const auto* row = std::find_if(ALARM_CODES.begin(), ALARM_CODES.end(),
                                 [&](const AlarmCode& candidate) { return candidate.code == code; });
  return row == ALARM_CODES.end() ? "" : row->text;
}
