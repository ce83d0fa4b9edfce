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

constexpr size_t FINDING_TITLE_SIZE = 1024;

}  // namespace

Alarm AlarmOf(const Found& found) {
  const FindingRow& finding_row = FindingRowOf(found.finding);
  std::string finding_title = base::Format("[ %s ] %s %s", gIpaddr, found.process, finding_row.subject);
  finding_title.resize(std::min(finding_title.size(), FINDING_TITLE_SIZE - 1));
  return {finding_row.kind, finding_title, finding_row.label, found.message, gIpaddr, found.attachment};
}

void Raise(const Found& found) {
  const FindingRow& finding_row = FindingRowOf(found.finding);
  if (finding_row.alarmCode != NO_ALARM_CODE) send_request(REPORT_ALARM, finding_row.alarmCode);
  if (finding_row.label == nullptr) return;
  const Alarm alarm = AlarmOf(found);
  if (m_send_email_used != 0) {
    MailAlarm(alarm);
    TRACE(TRACE_INFO, "Mail Send [ %s ] %s %s", gIpaddr, found.process, finding_row.traced);
  }
  if (m_send_webhook_used != 0) {
    PostAlarm(alarm);
    TRACE(TRACE_INFO, "WebHook Send [ %s ] %s %s", gIpaddr, found.process, finding_row.traced);
  }
}

std::string RestartMessage(const char* found_process) {
  return base::Format("%s is Die and Restart", found_process);
}

std::string OverMessage(const char* found_process, const char* found_what, int found_figure, int limit) {
  return base::Format("%s System %s[%d %%] Config %s[%d %%] is check", found_process, found_what,
                      found_figure, found_what, limit);
}

std::string HangMessage(const char* found_process, const char* found_verdict, int64_t found_times) {
  return base::Format("%s health check : %s, %lld in a row", found_process, found_verdict,
                      static_cast<long long>(found_times));
}
