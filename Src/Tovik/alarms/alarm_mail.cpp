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

void AddMailRecipients(smtp_session* mail_session, smtp_address_type type, int64_t count,
                       const EMAIL_ENTRIES* list) {
  for (int64_t index = 0; list != nullptr && index < count; ++index) {
    const EMAIL_ENTRIES::Entry entry = list->At(index);
    smtp_address_add(mail_session, type, entry.address, entry.name);
  }
}

void AddMailAddresses(smtp_session* mail_session, const EMAIL_LIST& lists) {
  smtp_address_add(mail_session, SMTP_ADDRESS_FROM, m_send_email, m_send_name);
  AddMailRecipients(mail_session, SMTP_ADDRESS_TO, lists.receiver_count, lists.receivers.get());
  AddMailRecipients(mail_session, SMTP_ADDRESS_CC, lists.reference_count, lists.references.get());
  AddMailRecipients(mail_session, SMTP_ADDRESS_BCC, lists.blind_count, lists.blinds.get());
}

// Returns errno of a file that could not be read, else 0.
int AttachPathToMail(smtp_session* mail_session, const char* path) {
  const char* const slash = std::strrchr(path, '/');
  const int status_before = smtp_status_code_get(mail_session);
  const int mail_status = smtp_attachment_add_path(mail_session, slash == nullptr ? path : slash + 1, path);
  const int error = errno;
  return mail_status == SMTP_FILE_FAILED && status_before == SMTP_SUCCESS ? error : 0;
}

// What a mail carries: a file that was read already, or one that the session is to read. As
// AttachPathToMail.
int AddMailFile(smtp_session* mail_session, const char* path, const alarms::Attachment* attachment) {
  if (attachment == nullptr) return path == nullptr ? 0 : AttachPathToMail(mail_session, path);
  smtp_attachment_add_mem(mail_session, attachment->name.c_str(), attachment->content.get(),
                          attachment->size);
  return 0;
}

// The title. With TEXT_REPAIR its control characters, which a header cannot hold, become blanks.
std::string MailSubject(std::string title) {
  for (char& c : title)
    if (m_text_repair != 0 && std::iscntrl(static_cast<unsigned char>(c)) != 0) c = ' ';
  return title;
}

// Why a session lost the mail, in words; empty when it did not.
std::string MailFailure(const Alarm& alarm, int mail_status, const std::string& unreached_server,
                        int fileError) {
  if (mail_status == SMTP_SUCCESS) return {};
  if (fileError != 0) return alarms::UnreadFileWords(alarm.attachment, fileError);
  const std::string mail_words = smtp_status_code_errstr(mail_status);
  return mail_status == SMTP_CONNECT_FAILED ? mail_words + ": " + unreached_server : mail_words;
}

// No result is looked at on the way: the session's status is sticky, and the close returns it.
int SendBySession(const Alarm& alarm, const char* body, const alarms::Attachment* attachment) {
  const std::shared_ptr<const EMAIL_LIST> lists = gEmailLists.Get();
  const alarms::MailHearing mail_hearing;
  OwnedMailSession mail_session = OpenMailSession();
  const std::string unreached_server = notices::On() ? smtp_connect_errstr(mail_session.get()) : "";
  smtp_auth(mail_session.get(), static_cast<int>(m_stmp_auth), m_stmp_auth_id, m_stmp_auth_password);
  AddMailAddresses(mail_session.get(), *lists);
  smtp_header_add(mail_session.get(), "Subject", MailSubject(alarm.title).c_str());
  const int fileError = AddMailFile(mail_session.get(), alarm.attachment, attachment);
  smtp_mail(mail_session.get(), body);
  const int mail_status = smtp_close(mail_session.release());
  if (notices::On())
    alarms::TellMail(alarm, MailFailure(alarm, mail_status, unreached_server, fileError),
                     mail_hearing.Dialogue());
  if (mail_status == 0) return 1;
  std::fprintf(stderr, "smtp failed: %s\n", smtp_status_code_errstr(mail_status));
  return -1;
}

bool MailGoesByUrl() {
  return *m_mail_url != '\0';
}

// A path whose key is missing in the configuration is just BASE_PATH.
bool IsNoMailFile(const char* path) {
  return *path == '\0' || std::strcmp(path, m_sz_base_path) == 0;
}

// Reads the attachment, unless the mail session will. When it cannot be read: with MAIL_SKIP_BAD the
// mail goes out without it and says so; otherwise returns false, and no mail goes out.
bool TakeAttachment(Alarm* alarm, std::optional<alarms::Attachment>* attachment) {
  const char* const path = alarm->attachment;
  if (path == nullptr || (m_mail_skip_bad == 0 && !MailGoesByUrl())) return true;
  if (m_mail_skip_bad != 0 && IsNoMailFile(path)) {
    alarm->attachment = nullptr;
    return true;
  }
  alarms::Attachment read = alarms::ReadAttachment(path);
  if (read.error == 0) {
    *attachment = std::move(read);
  } else if (m_mail_skip_bad != 0) {
    TRACE(TRACE_WARN, "Mail without %s: %s", path, std::strerror(read.error));
    alarms::TellMailWithoutFile(path, read.error);
    alarm->message += "\n" + alarms::AttachmentLeftOut(read, m_text_repair == 0);
    alarm->attachment = nullptr;
  } else {
    std::fprintf(stderr, "smtp failed: %s\n", smtp_status_code_errstr(SMTP_FILE_FAILED));
    alarms::TellMailLost(*alarm, alarms::UnreadFileWords(path, read.error));
  }
  return read.error == 0 || m_mail_skip_bad != 0;
}

int ComposeAndSend(Alarm alarm) {
  std::optional<alarms::Attachment> file;
  if (!TakeAttachment(&alarm, &file)) return -1;
  const char* reason = nullptr;
  const base::UniqueText body = alarms::MailBody(alarm, std::time(nullptr), &reason);
  if (body == nullptr) {
    TRACE(TRACE_ERROR, "Mail lost: %s, kind %u: %s", alarm.title.c_str(), alarm.kind, reason);
    alarms::TellMailLost(alarm, reason);
    return -1;
  }
  const alarms::Attachment* const attachment = file ? &*file : nullptr;
  return MailGoesByUrl() ? alarms::MailByUrl(alarm, body.get(), attachment)
                         : SendBySession(alarm, body.get(), attachment);
}

}  // namespace

int MailAlarm(const Alarm& alarm) try { return ComposeAndSend(alarm); } catch (const std::bad_alloc&) {
  TRACE(TRACE_ERROR, "Mail lost: %s, kind %u: no memory", alarm.title.c_str(), alarm.kind);
  return -1;
}

int SendAlarmEmail(const char* title, uint32_t kind, const char* label, const char* message,
                   const char* attachment_path) try {
  return MailAlarm({kind, title, label, message, "", attachment_path});
} catch (const std::bad_alloc&) {
  TRACE(TRACE_ERROR, "Mail lost: %s, kind %u: no memory", title, kind);
  return -1;
}
