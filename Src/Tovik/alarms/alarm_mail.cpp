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

// Returns errno of a file that could not be read, else 0.
int AttachPath(smtp_session* session, const char* path) {
  const char* const slash = std::strrchr(path, '/');
  const int before = smtp_status_code_get(session);
  const int status = smtp_attachment_add_path(session, slash == nullptr ? path : slash + 1, path);
  const int error = errno;
  return status == SMTP_FILE_FAILED && before == SMTP_SUCCESS ? error : 0;
}

// What a mail carries: a file that was read already, or one that the session is to read. As AttachPath.
int AddFile(smtp_session* session, const char* path, const alarms::Attachment* attachment) {
  if (attachment == nullptr) return path == nullptr ? 0 : AttachPath(session, path);
  smtp_attachment_add_mem(session, attachment->name.c_str(), attachment->content.get(), attachment->size);
  return 0;
}

// The title. With TEXT_REPAIR its control characters, which a header cannot hold, become blanks.
std::string MailSubject(std::string title) {
  for (char& c : title)
    if (m_text_repair != 0 && std::iscntrl(static_cast<unsigned char>(c)) != 0) c = ' ';
  return title;
}

// Why a session lost the mail, in words; empty when it did not.
std::string SessionFailure(const Alarm& alarm, int status, const std::string& unreached, int fileError) {
  if (status == SMTP_SUCCESS) return {};
  if (fileError != 0) return alarms::FileWords(alarm.attachment, fileError);
  const std::string words = smtp_status_code_errstr(status);
  return status == SMTP_CONNECT_FAILED ? words + ": " + unreached : words;
}

// No result is looked at on the way: the session's status is sticky, and the close returns it.
int SendBySession(const Alarm& alarm, const char* body, const alarms::Attachment* attachment) {
  const std::shared_ptr<const EMAIL_LIST> lists = gEmailLists.Get();
  const alarms::MailHearing hearing;
  smtp_session* session = nullptr;
  smtp_open(m_stmp_server_url, m_smtp_server_port, static_cast<int>(m_stmp_connection_security),
            static_cast<unsigned>(m_stmp_flags), nullptr, &session);
  const std::string unreached = notices::On() ? smtp_connect_errstr(session) : "";
  smtp_auth(session, static_cast<int>(m_stmp_auth), m_stmp_auth_id, m_stmp_auth_password);
  AddAddresses(session, *lists);
  smtp_header_add(session, "Subject", MailSubject(alarm.title).c_str());
  const int fileError = AddFile(session, alarm.attachment, attachment);
  smtp_mail(session, body);
  const int status = smtp_close(session);
  if (notices::On())
    alarms::TellMail(alarm, SessionFailure(alarm, status, unreached, fileError), hearing.Dialogue());
  if (status == 0) return 1;
  std::fprintf(stderr, "smtp failed: %s\n", smtp_status_code_errstr(status));
  return -1;
}

bool ByUrl() {
  return *m_mail_url != '\0';
}

// A path whose key is missing in the configuration is just BASE_PATH.
bool IsNoFile(const char* path) {
  return *path == '\0' || std::strcmp(path, m_sz_base_path) == 0;
}

// Reads the attachment, unless the mail session will. When it cannot be read: with MAIL_SKIP_BAD the mail
// goes out without it and says so; otherwise returns false, and no mail goes out.
bool TakeAttachment(Alarm* alarm, std::optional<alarms::Attachment>* attachment) {
  const char* const path = alarm->attachment;
  if (path == nullptr || (m_mail_skip_bad == 0 && !ByUrl())) return true;
  if (m_mail_skip_bad != 0 && IsNoFile(path)) {
    alarm->attachment = nullptr;
    return true;
  }
  alarms::Attachment read = alarms::ReadAttachment(path);
  if (read.error == 0) {
    *attachment = std::move(read);
  } else if (m_mail_skip_bad != 0) {
    TRACE(TRACE_WARN, "Mail without %s: %s", path, std::strerror(read.error));
    alarms::TellMailWithoutFile(path, read.error);
    alarm->message += "\n" + alarms::LeftOutSentence(read, m_text_repair == 0);
    alarm->attachment = nullptr;
  } else {
    std::fprintf(stderr, "smtp failed: %s\n", smtp_status_code_errstr(SMTP_FILE_FAILED));
    alarms::TellMailLost(*alarm, alarms::FileWords(path, read.error));
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
  return ByUrl() ? alarms::MailByUrl(alarm, body.get(), attachment)
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
