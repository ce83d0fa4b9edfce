#include "Tovik/alarms/raise_alarm.h"

#include <algorithm>

#include "Tovik/alarms/email.h"
#include "Tovik/alarms/webhook.h"
#include "Tovik/core/host.h"
#include "Tovik/core/trace.h"
#include "base/format.h"

namespace {

constexpr size_t SUBJECT_SIZE = 1024;

}  // namespace

std::string AlarmSubject(const Alarm& alarm) {
  std::string subject =
      base::Format("[ %s ] %s Alarm Occured - %s", gIpaddr, alarm.process, alarm.subjectCheck);
  subject.resize(std::min(subject.size(), SUBJECT_SIZE - 1));
  return subject;
}

void RaiseAlarm(const Alarm& alarm) {
  const std::string subject = AlarmSubject(alarm);
  if (m_send_email_used != 0) {
    SendAlarmEmail(subject.c_str(), alarm.kind, alarm.label, alarm.body, alarm.attachment);
    TRACE(TRACE_INFO, "Mail Send [ %s ] %s Alarm Occured - %s", gIpaddr, alarm.process, alarm.tracedCheck);
  }
  if (m_send_webhook_used != 0) {
    SendAlarmWebHook(subject.c_str(), alarm.kind, alarm.label, alarm.body);
    TRACE(TRACE_INFO, "WebHook Send [ %s ] %s Alarm Occured - %s", gIpaddr, alarm.process, alarm.tracedCheck);
  }
}
