#include "Tovik/alarms/email.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>

#include "Tovik/alarms/alarm_pictures.h"
#include "Tovik/alarms/alarm_text.h"
#include "Tovik/core/config.h"
#include "Tovik/core/trace.h"
#include "base/format.h"
#include "smtp/smtp.h"

namespace {

using alarms::AlarmText;

std::string HtmlMail(const AlarmText& alarm) {
  return base::Format(
      "<html><head><title>No Title</title><body><div>\t<div style='margin:auto;width:800px;'>\t\t"
      "<div style='padding:5pt 5pt 5pt 7.5pt;background-color:#6365A2;font-size:15pt;"
      "font-family:\"Segoe UI\",sans-serif;color:white;'>%s\t\t</div>\t\t"
      "<div style='background:#F3F2F1;padding:18pt 7.5pt 15pt 9pt;'>\t\t\t<table>\t\t\t\t<tr>\t\t\t\t\t"
      "<td style='padding:7.5pt 7.5pt 0 0;vertical-align:top;width:40px;'>\t\t\t\t\t\t"
      "<img src='%s' width='40px' style='width:40px; max-width:40px' />\t\t\t\t\t</td>\t\t\t\t\t"
      "<td style='padding:7.5pt 7.5pt 7.5pt 7.5pt;background-color:#FFFFFF;'>\t\t\t\t\t\t"
      "<div style='margin-bottom:7.5pt;'>\t\t\t\t\t\t\t"
      "<b style='font-size:9pt;font-family:\"Segoe UI\",sans-serif;color:#323130;'>%s</b>\t\t\t\t\t\t\t"
      "<span>&nbsp;&nbsp;&nbsp;&nbsp;</span>\t\t\t\t\t\t\t"
      "<span style='font-size:9pt;font-family:\"Segoe UI\",sans-serif;color:gray'>%s</span>\t\t\t\t\t\t"
      "</div>\t\t\t\t\t\t"
      "<div style='word-break:break-word;;font-size:10.5pt;font-family:\"Segoe UI\",sans-serif;"
      "color:#323130'>%s</div>\t\t\t\t\t</td>\t\t\t\t</tr>\t\t\t</table>\t\t</div>\t</div></div></body>"
      "</html>",
      alarm.title.c_str(), alarm.picture, alarm.label.c_str(), alarm.date.c_str(), alarm.message.c_str());
}

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
int Send(const char* subject, const char* body, const char* attachment_path) {
  const std::shared_ptr<const EMAIL_LIST> lists = gEmailLists.Get();
  smtp_session* session = nullptr;
  smtp_open(m_stmp_server_url, m_smtp_server_port, static_cast<int>(m_stmp_connection_security),
            static_cast<unsigned>(m_stmp_flags), nullptr, &session);
  smtp_auth(session, static_cast<int>(m_stmp_auth), m_stmp_auth_id, m_stmp_auth_password);
  AddAddresses(session, *lists);
  smtp_header_add(session, "Subject", subject);
  if (attachment_path != nullptr) Attach(session, attachment_path);
  smtp_mail(session, body);
  const int status = smtp_close(session);
  if (status == 0) return 1;
  std::fprintf(stderr, "smtp failed: %s\n", smtp_status_code_errstr(status));
  return -1;
}

}  // namespace

int SendAlarmEmail(const char* title, uint32_t kind, const char* label, const char* message,
                   const char* attachment_path) {
  const char* reason = "no memory";
  try {
    const char* const picture = alarms::PictureOf(kind, &alarms::AlarmPictures::mail);
    const base::UniqueText body = alarms::ConvertBody(
        alarms::FillLayout({title, label, message, alarms::DateText(std::time(nullptr)), picture}, HtmlMail),
        &reason);
    if (body != nullptr) return Send(title, body.get(), attachment_path);
  } catch (const std::bad_alloc&) {
    // Told below.
  }
  TRACE(TRACE_ERROR, "Mail lost: %s, kind %u: %s", title, kind, reason);
  return -1;
}
