#include "DIOSVC/alarm_codes.h"

#include <algorithm>
#include <array>

namespace {

struct AlarmCode {
  int alarm_code;
  const char* alarm_text;
};
constexpr std::array<AlarmCode, 5> ALARM_CODES = {{
    {ALARM_START, "Tovik Start"},
    {ALARM_MEMORY, "Memory Check"},
    {ALARM_CPU, "Cpu Check"},
    {ALARM_RESTART, "DunraSTT Check"},
    {ALARM_CHANNEL, "Work Channel Check"},
}};

}  // namespace

const char* AlarmText(int64_t alarm_code) {
  const auto* alarm_row =
      std::find_if(ALARM_CODES.begin(), ALARM_CODES.end(),
                   [&](const AlarmCode& candidate) { return candidate.alarm_code == alarm_code; });
  return alarm_row == ALARM_CODES.end() ? "" : alarm_row->alarm_text;
}
