#include "Tovik/alarms/mail.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include "Tovik/alarms/mail_body.h"
#include "Tovik/alarms/recipients.h"
#include "Tovik/config/config.h"
#include "Tovik/trace.h"
#include "smtp/smtp.h"

namespace {

void AddRecipients(smtp_session* session, smtp_address_type type, int64_t count, const EMAIL_ENTRIES* list) {
  for (int64_t index = 0; list != nullptr && index < count; ++index) {
    const EMAIL_ENTRIES::Entry entry = list->At(index);
    smtp_address_add(session, type, entry.address, entry.name);
  }
}

void AddAddresses(smtp_session* session, const EMAIL_LIST& lists) {
  smtp_address_add(session, SMTP_ADDRESS_FROM, m_send_email, m_send_name);
  AddRecipients(session, SMTP_ADDRESS_TO, lists.receiver_count, lists.receivers.get());
  AddRecipients(session, SMTP_ADDRESS_CC, lists.reference_count, lists.references.get());
  AddRecipients(session, SMTP_ADDRESS_BCC, lists.blind_count, lists.blinds.get());
}

void Attach(smtp_session* session, const char* path) {
  const char* const slash = std::strrchr(path, '/');
  smtp_attachment_add_path(session, slash == nullptr ? path : slash + 1, path);
}

// No result is looked at on the way: the session's status is sticky, and the close returns it.
int Send(const Alarm& alarm, const char* body) {
  const std::shared_ptr<const EMAIL_LIST> lists = gEmailLists.Get();
  smtp_session* session = nullptr;
  smtp_open(m_stmp_server_url, m_smtp_server_port, static_cast<int>(m_stmp_connection_security),
            static_cast<unsigned>(m_stmp_flags), nullptr, &session);
  smtp_auth(session, static_cast<int>(m_stmp_auth), m_stmp_auth_id, m_stmp_auth_password);
  AddAddresses(session, *lists);
  smtp_header_add(session, "Subject", alarm.title.c_str());
  if (alarm.attachment != nullptr) Attach(session, alarm.attachment);
  smtp_mail(session, body);
  const int status = smtp_close(session);
  if (status == 0) return 1;
  std::fprintf(stderr, "smtp failed: %s\n", smtp_status_code_errstr(status));
  return -1;
}

}  // namespace

int MailAlarm(const Alarm& alarm) {
  const char* reason = nullptr;
  const base::UniqueText body = alarms::MailBody(alarm, std::time(nullptr), &reason);
  if (body != nullptr) return Send(alarm, body.get());
  TRACE(TRACE_ERROR, "Mail lost: %s, kind %u: %s", alarm.title.c_str(), alarm.kind, reason);
  return -1;
}

int SendAlarmEmail(const char* title, uint32_t kind, const char* label, const char* message,
                   const char* attachment_path) try {
  return MailAlarm({kind, title, label, message, "", attachment_path});
} catch (const std::bad_alloc&) {
  TRACE(TRACE_ERROR, "Mail lost: %s, kind %u: no memory", title, kind);
  return -1;
}
