#include "Tovik/alarms/alarm_mail.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "Tovik/alarms/alarm_attachment.h"
#include "Tovik/alarms/alarm_mail_body.h"
#include "Tovik/alarms/alarm_mail_by_url.h"
#include "Tovik/alarms/delivery_notices.h"
#include "Tovik/alarms/recipients.h"
#include "Tovik/config/config.h"
#include "Tovik/notices/notices.h"
#include "Tovik/trace.h"
#include "smtp/smtp.h"

namespace {

struct CloseMailSession {
  void operator()(smtp_session* mail_session) const { smtp_close(mail_session); }
};
using OwnedMailSession = std::unique_ptr<smtp_session, CloseMailSession>;

OwnedMailSession OpenMailSession() {
  smtp_session* mail_session = nullptr;
  smtp_open(m_stmp_server_url, m_smtp_server_port, static_cast<int>(m_stmp_connection_security),
            static_cast<unsigned>(m_stmp_flags), nullptr, &mail_session);
  return OwnedMailSession(mail_session);
}

void AddMailRecipients(smtp_session* mail_session, smtp_address_type type, int64_t mail_count,
                       const EMAIL_ENTRIES* mail_recipients) {
  for (int64_t index = 0; mail_recipients != nullptr && index < mail_count; ++index) {
    const EMAIL_ENTRIES::Entry mail_recipient = mail_recipients->At(index);
    smtp_address_add(mail_session, type, mail_recipient.address, mail_recipient.name);
  }
}

void AddMailAddresses(smtp_session* mail_session, const EMAIL_LIST& mail_lists) {
  smtp_address_add(mail_session, SMTP_ADDRESS_FROM, m_send_email, m_send_name);
  AddMailRecipients(mail_session, SMTP_ADDRESS_TO, mail_lists.receiver_count, mail_lists.receivers.get());
  AddMailRecipients(mail_session, SMTP_ADDRESS_CC, mail_lists.reference_count, mail_lists.references.get());
  AddMailRecipients(mail_session, SMTP_ADDRESS_BCC, mail_lists.blind_count, mail_lists.blinds.get());
}

// Returns errno of a file that could not be read, else 0.
int AttachPathToMail(smtp_session* mail_session, const char* mail_file) {
  const char* const mail_file_slash = std::strrchr(mail_file, '/');
  const int mail_status_before = smtp_status_code_get(mail_session);
  const int mail_status = smtp_attachment_add_path(
      mail_session, mail_file_slash == nullptr ? mail_file : mail_file_slash + 1, mail_file);
  const int mail_file_error = errno;
  return mail_status == SMTP_FILE_FAILED && mail_status_before == SMTP_SUCCESS ? mail_file_error : 0;
}

// What a mail carries: a file that was read already, or one that the session is to read. As
// AttachPathToMail.
int AddMailFile(smtp_session* mail_session, const char* mail_file,
                const alarms::Attachment* mail_attachment) {
  if (mail_attachment == nullptr) return mail_file == nullptr ? 0 : AttachPathToMail(mail_session, mail_file);
  smtp_attachment_add_mem(mail_session, mail_attachment->name.c_str(), mail_attachment->content.get(),
                          mail_attachment->size);
  return 0;
}

// The title. With TEXT_REPAIR its control characters, which a header cannot hold, become blanks.
std::string MailSubject(std::string mail_title) {
  for (char& c : mail_title)
    if (m_text_repair != 0 && std::iscntrl(static_cast<unsigned char>(c)) != 0) c = ' ';
  return mail_title;
}

// Why a session lost the mail, in words; empty when it did not.
std::string MailFailure(const Alarm& alarm, int mail_status, const std::string& unreached_mail_server,
                        int mail_file_error) {
  if (mail_status == SMTP_SUCCESS) return {};
  if (mail_file_error != 0) return alarms::UnreadFileWords(alarm.attachment, mail_file_error);
  const std::string mail_words = smtp_status_code_errstr(mail_status);
  return mail_status == SMTP_CONNECT_FAILED ? mail_words + ": " + unreached_mail_server : mail_words;
}

// No result is looked at on the way: the session's status is sticky, and the close returns it.
int SendMailBySession(const Alarm& alarm, const char* mail_body, const alarms::Attachment* mail_attachment) {
  const std::shared_ptr<const EMAIL_LIST> mail_lists = gEmailLists.Get();
  const alarms::MailRefusalHearing mail_hearing;
  OwnedMailSession mail_session = OpenMailSession();
  const std::string unreached_mail_server = notices::On() ? smtp_connect_errstr(mail_session.get()) : "";
  smtp_auth(mail_session.get(), static_cast<int>(m_stmp_auth), m_stmp_auth_id, m_stmp_auth_password);
  AddMailAddresses(mail_session.get(), *mail_lists);
  smtp_header_add(mail_session.get(), "Subject", MailSubject(alarm.title).c_str());
  const int mail_file_error = AddMailFile(mail_session.get(), alarm.attachment, mail_attachment);
  smtp_mail(mail_session.get(), mail_body);
  const int mail_status = smtp_close(mail_session.release());
  if (notices::On())
    alarms::TellMail(alarm, MailFailure(alarm, mail_status, unreached_mail_server, mail_file_error),
                     mail_hearing.Refusals());
  if (mail_status == 0) return 1;
  std::fprintf(stderr, "smtp failed: %s\n", smtp_status_code_errstr(mail_status));
  return -1;
}

// A path whose key is missing in the configuration is just BASE_PATH.
bool IsNoMailFile(const char* mail_file) {
  return *mail_file == '\0' || std::strcmp(mail_file, m_sz_base_path) == 0;
}

// Reads the attachment, unless the mail session will. When it cannot be read: with MAIL_SKIP_BAD the
// mail goes out without it and says so; otherwise returns false, and no mail goes out.
bool TakeMailAttachment(Alarm* mailed_alarm, std::optional<alarms::Attachment>* mail_attachment) {
  const char* const mail_file = mailed_alarm->attachment;
  if (mail_file == nullptr || (m_mail_skip_bad == 0 && !alarms::MailGoesByUrl())) return true;
  if (m_mail_skip_bad != 0 && IsNoMailFile(mail_file)) {
    mailed_alarm->attachment = nullptr;
    return true;
  }
  alarms::Attachment read_mail_file = alarms::ReadAttachment(mail_file);
  const bool mail_file_read = read_mail_file.error == 0;
  if (mail_file_read) {
    *mail_attachment = std::move(read_mail_file);
  } else if (m_mail_skip_bad != 0) {
    TRACE(TRACE_WARN, "Mail without %s: %s", mail_file, std::strerror(read_mail_file.error));
    alarms::TellMailWithoutFile(mail_file, read_mail_file.error);
    mailed_alarm->message += "\n" + alarms::AttachmentLeftOut(read_mail_file, m_text_repair == 0);
    mailed_alarm->attachment = nullptr;
  } else {
    std::fprintf(stderr, "smtp failed: %s\n", smtp_status_code_errstr(SMTP_FILE_FAILED));
    alarms::TellMailLost(*mailed_alarm, alarms::UnreadFileWords(mail_file, read_mail_file.error));
  }
  return mail_file_read || m_mail_skip_bad != 0;
}

int ComposeAndSendMail(Alarm alarm) {
  std::optional<alarms::Attachment> mail_file;
  if (!TakeMailAttachment(&alarm, &mail_file)) return -1;
  const char* mail_lost_reason = nullptr;
  const base::UniqueText mail_body = alarms::MailBody(alarm, std::time(nullptr), &mail_lost_reason);
  if (mail_body == nullptr) {
    TRACE(TRACE_ERROR, "Mail lost: %s, kind %u: %s", alarm.title.c_str(), alarm.kind, mail_lost_reason);
    alarms::TellMailLost(alarm, mail_lost_reason);
    return -1;
  }
  const alarms::Attachment* const mail_attachment = mail_file ? &*mail_file : nullptr;
  return alarms::MailGoesByUrl() ? alarms::MailByUrl(alarm, mail_body.get(), mail_attachment)
                                 : SendMailBySession(alarm, mail_body.get(), mail_attachment);
}

}  // namespace

int MailAlarm(const Alarm& alarm) try { return ComposeAndSendMail(alarm); } catch (const std::bad_alloc&) {
  TRACE(TRACE_ERROR, "Mail lost: %s, kind %u: no memory", alarm.title.c_str(), alarm.kind);
  return -1;
}

int SendAlarmEmail(const char* title, uint32_t kind, const char* label, const char* message,
                   const char* mail_attachment_path) try {
  return MailAlarm({kind, title, label, message, "", mail_attachment_path});
} catch (const std::bad_alloc&) {
  TRACE(TRACE_ERROR, "Mail lost: %s, kind %u: no memory", title, kind);
  return -1;
}
