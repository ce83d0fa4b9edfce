#include "Tovik/findings/finding_table.h"

#include <algorithm>

#include "DIOSVC/alarm_codes.h"
#include "Tovik/alarms/alarm.h"

namespace {

constexpr const char* FINDING_MONITOR = "STT Service Moniter";
constexpr uint32_t NO_FINDING_KIND = 0;

}  // namespace

// clang-format off
const std::array<FindingRow, 8> FINDINGS = {{
    {Finding::AGENT_STARTED, "start", ALARM_START, NO_FINDING_KIND, nullptr, nullptr, nullptr},
    {Finding::CHANNELS_OVER, "threshold-channel", ALARM_CHANNEL, ALARM_KIND_THRESHOLD, FINDING_MONITOR, "Alarm Occured - Channel Check", "Alarm Occured - Channel Check"},
    {Finding::MEMORY_OVER, "threshold-memory", ALARM_MEMORY, ALARM_KIND_THRESHOLD, FINDING_MONITOR, "Alarm Occured - Memory Check", "Alarm Occured - Memory Check"},
    {Finding::CPU_OVER, "threshold-cpu", ALARM_CPU, ALARM_KIND_THRESHOLD, FINDING_MONITOR, "Alarm Occured - Cpu Check", "Alarm Occured - Cpu Check"},
    {Finding::ENGINE_DEAD, "restart", ALARM_RESTART, ALARM_KIND_RESTART, FINDING_MONITOR, "Alarm Occured - Process Restart", "Alarm Occured - Process Check"},
    {Finding::ENGINE_HANGS, "hang", NO_ALARM_CODE, ALARM_KIND_RESTART, FINDING_MONITOR, "Alarm Occured - Hang Check", "Alarm Occured - Hang Check"},
    {Finding::DAILY_RESULT, "result", NO_ALARM_CODE, ALARM_KIND_RESULT, "STT Service Result", "Alarm Occured - Result Check", "Alarm Occured - Result Check"},
    {Finding::ERROR_LINES, "error-log", NO_ALARM_CODE, ALARM_KIND_ERROR_LOG, "STT Service Error", "Alarm Occured - Service Check", "Alarm Occured - Service Check"},
}};
// clang-format on

const FindingRow& FindingRowOf(Finding finding) {
  return *std::find_if(FINDINGS.begin(), FINDINGS.end(),
                       [&](const FindingRow& finding_row) { return finding_row.finding == finding; });
}
