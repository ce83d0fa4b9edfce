// One mail: the envelope, DATA, the final dot.
#include <algorithm>

#include "smtp/smtp_headers.h"
#include "smtp/smtp_mime.h"
#include "smtp/smtp_reply.h"
#include "smtp/smtp_session.h"
#include "smtp/smtp_status.h"
#include "smtp/smtp_strings.h"
#include "smtp/smtp_write.h"

namespace {

constexpr int64_t ENVELOPE_TIMEOUT = 300;
constexpr int64_t DATA_TIMEOUT = 120;
constexpr int64_t MAIL_CONTENT_TIMEOUT = 180;
constexpr int64_t FINAL_REPLY_TIMEOUT = 600;
constexpr int CODE_DATA_ACCEPTED = 354;
constexpr int CODE_MAIL_ACCEPTED = 250;

// Sends the sender, then the recipients in their order.
int SendEnvelope(smtp_session* session) {
  const auto& addresses = session->addresses;
  const auto sender = std::find_if(addresses.begin(), addresses.end(), [](const smtp_address& address) {
    return address.kind == SMTP_ADDRESS_FROM;
  });
  if (sender == addresses.end()) return smtp_status_code_set(session, SMTP_INVALID);
  smtp_set_read_timeout(session, ENVELOPE_TIMEOUT);
  smtp_mail_envelope_header(session, "MAIL FROM", *sender);
  for (const smtp_address& address : addresses) {
    if (session->status != SMTP_SUCCESS) break;
    if (address.kind == SMTP_ADDRESS_FROM) continue;
    smtp_mail_envelope_header(session, "RCPT TO", address);
  }
  return session->status;
}

// Sends a command whose reply must have the wanted code.
int SendMailCommand(smtp_session* session, const char* command, int64_t timeout, int wantedCode) {
  if (smtp_puts(session, command) != SMTP_SUCCESS) return session->status;
  smtp_set_read_timeout(session, timeout);
  const int replyCode = smtp_read_and_parse_code(session);
  if (session->status != SMTP_SUCCESS || replyCode == wantedCode) return session->status;
  return smtp_status_code_set(session, SMTP_UNEXPECTED_CODE);
}

// What stands between the reply to DATA and the final dot.
int PrintMail(smtp_session* session, const char* body) {
  if (smtp_add_date(session) != SMTP_SUCCESS) return session->status;
  smtp_set_read_timeout(session, MAIL_CONTENT_TIMEOUT);
  if (smtp_print_headers(session) != SMTP_SUCCESS) return session->status;
  return smtp_print_email(session, body);
}

}  // namespace

int smtp_mail(smtp_session* session, const char* body) {
  return smtp_guarded(session, [&] {
    if (body == nullptr) return smtp_status_code_set(session, SMTP_INVALID);
    if (session->print != nullptr) return PrintMail(session, body);
    if (SendEnvelope(session) != SMTP_SUCCESS) return session->status;
    smtp_set_read_timeout(session, DATA_TIMEOUT);
    if (SendMailCommand(session, "DATA\r\n", DATA_TIMEOUT, CODE_DATA_ACCEPTED) != SMTP_SUCCESS)
      return session->status;
    if (PrintMail(session, body) != SMTP_SUCCESS) return session->status;
    return SendMailCommand(session, ".\r\n", FINAL_REPLY_TIMEOUT, CODE_MAIL_ACCEPTED);
  });
}

int smtp_mail_envelope_header(smtp_session* session, const char* command, const smtp_address& address) {
  const char* utf8Extension = smtp_str_has_nonascii_utf8(address.email.c_str()) != 0 ? " SMTPUTF8" : "";
  smtp_puts(session, command + (":<" + address.email) + ">" + utf8Extension + "\r\n");
  if (session->status == SMTP_SUCCESS) smtp_read_and_parse_code(session);
  return session->status;
}
