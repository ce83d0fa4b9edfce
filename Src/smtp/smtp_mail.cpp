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

constexpr int64_t MAIL_ENVELOPE_TIMEOUT = 300;
constexpr int64_t MAIL_DATA_TIMEOUT = 120;
constexpr int64_t MAIL_CONTENT_TIMEOUT = 180;
constexpr int64_t MAIL_REPLY_TIMEOUT = 600;
constexpr int MAIL_DATA_CODE = 354;
constexpr int MAIL_ACCEPTED_CODE = 250;

// Sends the sender, then the recipients in their order.
int SendEnvelope(smtp_session* session) {
  const auto& envelope = session->addresses;
  const auto isMailSender = [](const smtp_address& address) { return address.kind == SMTP_ADDRESS_FROM; };
  const auto mailSender = std::find_if(envelope.begin(), envelope.end(), isMailSender);
  if (mailSender == envelope.end()) return smtp_status_code_set(session, SMTP_INVALID);
  smtp_set_read_timeout(session, MAIL_ENVELOPE_TIMEOUT);
  smtp_mail_envelope_header(session, "MAIL FROM", *mailSender);
  for (const smtp_address& mailAddress : envelope) {
    const bool mailRecipient = !isMailSender(mailAddress) && session->status == SMTP_SUCCESS;
    if (mailRecipient) smtp_mail_envelope_header(session, "RCPT TO", mailAddress);
  }
  return session->status;
}

// Sends a command whose reply must have the wanted code.
int SendMailCommand(smtp_session* session, const char* mailCommand, int64_t mailTimeout, int wantedMailCode) {
  if (smtp_puts(session, mailCommand) != SMTP_SUCCESS) return session->status;
  smtp_set_read_timeout(session, mailTimeout);
  const int mailReplyCode = smtp_read_and_parse_code(session);
  if (session->status != SMTP_SUCCESS || mailReplyCode == wantedMailCode) return session->status;
  return smtp_status_code_set(session, SMTP_UNEXPECTED_CODE);
}

// What stands between the reply to DATA and the final dot.
int PrintMail(smtp_session* session, const char* mailBody) {
  if (smtp_add_date(session) != SMTP_SUCCESS) return session->status;
  smtp_set_read_timeout(session, MAIL_CONTENT_TIMEOUT);
  if (smtp_print_headers(session) != SMTP_SUCCESS) return session->status;
  return smtp_print_email(session, mailBody);
}

}  // namespace

int smtp_mail(smtp_session* session, const char* mailBody) {
  return smtp_guarded(session, [session, mailBody] {
    if (mailBody == nullptr) return smtp_status_code_set(session, SMTP_INVALID);
    if (session->print != nullptr) return PrintMail(session, mailBody);
    if (SendEnvelope(session) != SMTP_SUCCESS) return session->status;
    smtp_set_read_timeout(session, MAIL_DATA_TIMEOUT);
    if (SendMailCommand(session, "DATA\r\n", MAIL_DATA_TIMEOUT, MAIL_DATA_CODE) != SMTP_SUCCESS)
      return session->status;
    if (PrintMail(session, mailBody) != SMTP_SUCCESS) return session->status;
    return SendMailCommand(session, ".\r\n", MAIL_REPLY_TIMEOUT, MAIL_ACCEPTED_CODE);
  });
}

int smtp_mail_envelope_header(smtp_session* session, const char* command, const smtp_address& address) {
  const char* utf8Extension = smtp_str_has_nonascii_utf8(address.email.c_str()) != 0 ? " SMTPUTF8" : "";
  const std::string envelopeLine = command + (":<" + address.email) + ">" + utf8Extension + "\r\n";
  if (smtp_puts(session, envelopeLine) == SMTP_SUCCESS) smtp_read_and_parse_code(session);
  return session->status;
}
