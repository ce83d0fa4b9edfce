#include "Tovik/findings/findings.h"

#include <algorithm>

#include "DIOSVC/alarm_codes.h"
#include "DIOSVC/report_types.h"
#include "Tovik/alarms/alarm_mail.h"
#include "Tovik/alarms/webhook.h"
#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "Tovik/reports/report_mailbox.h"
#include "Tovik/trace.h"
#include "base/format.h"

namespace {

constexpr size_t TITLE_SIZE = 1024;
constexpr const char* MONITOR = "STT Service Moniter";
constexpr uint32_t NO_KIND = 0;

}  // namespace

// clang-format off
const std::array<FindingRow, 8> FINDINGS = {{
    {Finding::AGENT_STARTED, "start", ALARM_START, NO_KIND, nullptr, nullptr, nullptr},
    {Finding::CHANNELS_OVER, "threshold-channel", ALARM_CHANNEL, ALARM_KIND_THRESHOLD, MONITOR,
     "Alarm Occured - Channel Check", "Alarm Occured - Channel Check"},
    {Finding::MEMORY_OVER, "threshold-memory", ALARM_MEMORY, ALARM_KIND_THRESHOLD, MONITOR,
     "Alarm Occured - Memory Check", "Alarm Occured - Memory Check"},
    {Finding::CPU_OVER, "threshold-cpu", ALARM_CPU, ALARM_KIND_THRESHOLD, MONITOR,
     "Alarm Occured - Cpu Check", "Alarm Occured - Cpu Check"},
    {Finding::ENGINE_DEAD, "restart", ALARM_RESTART, ALARM_KIND_RESTART, MONITOR,
     "Alarm Occured - Process Restart", "Alarm Occured - Process Check"},
    {Finding::ENGINE_HANGS, "hang", NO_ALARM_CODE, ALARM_KIND_RESTART, MONITOR,
     "Alarm Occured - Hang Check", "Alarm Occured - Hang Check"},
    {Finding::DAILY_RESULT, "result", NO_ALARM_CODE, ALARM_KIND_RESULT, "STT Service Result",
     "Alarm Occured - Result Check", "Alarm Occured - Result Check"},
    {Finding::ERROR_LINES, "error-log", NO_ALARM_CODE, ALARM_KIND_ERROR_LOG, "STT Service Error",
     "Alarm Occured - Service Check", "Alarm Occured - Service Check"},
}};
// clang-format on

const FindingRow& RowOf(Finding finding) {
  return *std::find_if(FINDINGS.begin(), FINDINGS.end(),
                       [&](const FindingRow& row) { return row.finding == finding; });
}

Alarm AlarmOf(const Found& found) {
  const FindingRow& row = RowOf(found.finding);
  std::string title = base::Format("[ %s ] %s %s", gIpaddr, found.process, row.subject);
  title.resize(std::min(title.size(), TITLE_SIZE - 1));
  return {row.kind, title, row.label, found.message, gIpaddr, found.attachment};
}

void Raise(const Found& found) {
  const FindingRow& row = RowOf(found.finding);
  if (row.alarmCode != NO_ALARM_CODE) send_request(REPORT_ALARM, row.alarmCode);
  if (row.label == nullptr) return;
  const Alarm alarm = AlarmOf(found);
  if (m_send_email_used != 0) {
    MailAlarm(alarm);
    TRACE(TRACE_INFO, "Mail Send [ %s ] %s %s", gIpaddr, found.process, row.traced);
  }
  if (m_send_webhook_used != 0) {
    PostAlarm(alarm);
    TRACE(TRACE_INFO, "WebHook Send [ %s ] %s %s", gIpaddr, found.process, row.traced);
  }
}

std::string RestartMessage(const char* process) {
  return base::Format("%s is Die and Restart", process);
}

std::string OverMessage(const char* process, const char* what, int figure, int limit) {
  return base::Format("%s System %s[%d %%] Config %s[%d %%] is check", process, what, figure, what, limit);
}

std::string HangMessage(const char* process, const char* verdict, int64_t times) {
  return base::Format("%s health check : %s, %lld in a row", process, verdict, static_cast<long long>(times));
}
