#include "Tovik/findings/findings.h"

#include <algorithm>

#include "DIOSVC/alarm_codes.h"
#include "DIOSVC/report_types.h"
#include "Tovik/alarms/alarm_mail.h"
#include "Tovik/alarms/webhook.h"
#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "Tovik/reports/report_request.h"
#include "Tovik/trace.h"
#include "base/format.h"

namespace {

constexpr size_t ALARM_TITLE_SIZE = 1024;

}  // namespace

Alarm AlarmOf(const Found& found) {
  const FindingRow& row = FindingRowOf(found.finding);
  std::string alarm_title = base::Format("[ %s ] %s %s", gIpaddr, found.process, row.subject);
  alarm_title.resize(std::min(alarm_title.size(), ALARM_TITLE_SIZE - 1));
  return {row.kind, alarm_title, row.label, found.message, gIpaddr, found.attachment};
}

void Raise(const Found& found) {
  const FindingRow& row = FindingRowOf(found.finding);
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
