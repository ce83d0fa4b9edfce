// The DATA exchange: envelope, headers, body, attachments.
#include <algorithm>
#include <array>

#include "smtp/smtp_boundary.h"
#include "smtp/smtp_date.h"
#include "smtp/smtp_fold.h"
#include "smtp/smtp_internal.h"
#include "smtp/smtp_strings.h"

namespace {

constexpr int64_t ENVELOPE_TIMEOUT = 300;
constexpr int64_t DATA_TIMEOUT = 120;
constexpr int64_t CONTENT_TIMEOUT = 180;
constexpr int64_t FINAL_TIMEOUT = 600;
constexpr int CODE_START_INPUT = 354;
constexpr int CODE_DONE = 250;
constexpr size_t HEADER_WIDTH = 78;

int WriteText(smtp_session* session, const std::string& text) {
  return smtp_write(session, text.data(), text.size());
}

// Sends the sender, then the recipients in their order.
int SendEnvelope(smtp_session* session) {
  const auto& addresses = session->addresses;
  const auto sender = std::find_if(addresses.begin(), addresses.end(),
                                   [](const smtp_address& a) { return a.kind == SMTP_ADDRESS_FROM; });
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

// Sends a command whose reply must have this code.
int SendCommand(smtp_session* session, const char* line, int64_t timeout, int code) {
  if (smtp_puts(session, line) != SMTP_SUCCESS) return session->status;
  smtp_set_read_timeout(session, timeout);
  const int got = smtp_read_and_parse_code(session);
  if (session->status != SMTP_SUCCESS || got == code) return session->status;
  return smtp_status_code_set(session, SMTP_UNEXPECTED_CODE);
}

int AddDate(smtp_session* session) {
  if (smtp_header_exists(session, "Date") != 0) return session->status;
  std::array<char, 32> date{};
  if (smtp_date_rfc_2822(date.data()) != 0) return smtp_status_code_set(session, SMTP_DATE_FAILED);
  return smtp_header_add(session, "Date", date.data());
}

int PrintHeaders(smtp_session* session) {
  smtp_append_address_to_header(session, SMTP_ADDRESS_FROM, "From");
  smtp_append_address_to_header(session, SMTP_ADDRESS_TO, "To");
  smtp_append_address_to_header(session, SMTP_ADDRESS_CC, "Cc");
  for (const smtp_header& header : session->headers) {
    if (session->status != SMTP_SUCCESS) break;
    smtp_print_header(session, header);
  }
  return session->status;
}

// What stands between the reply to DATA and the final dot.
int PrintMail(smtp_session* session, const char* body) {
  if (AddDate(session) != SMTP_SUCCESS) return session->status;
  smtp_set_read_timeout(session, CONTENT_TIMEOUT);
  if (PrintHeaders(session) != SMTP_SUCCESS) return session->status;
  return smtp_print_email(session, body);
}

}  // namespace

int smtp_mail(smtp_session* session, const char* body) {
  return smtp_guarded(session, [&] {
    if (body == nullptr) return smtp_status_code_set(session, SMTP_INVALID);
    if (session->print != nullptr) return PrintMail(session, body);
    if (SendEnvelope(session) != SMTP_SUCCESS) return session->status;
    smtp_set_read_timeout(session, DATA_TIMEOUT);
    if (SendCommand(session, "DATA\r\n", DATA_TIMEOUT, CODE_START_INPUT) != SMTP_SUCCESS)
      return session->status;
    if (PrintMail(session, body) != SMTP_SUCCESS) return session->status;
    return SendCommand(session, ".\r\n", FINAL_TIMEOUT, CODE_DONE);
  });
}

int smtp_mail_envelope_header(smtp_session* session, const char* command, const smtp_address& address) {
  const char* extension = smtp_str_has_nonascii_utf8(address.email.c_str()) != 0 ? " SMTPUTF8" : "";
  WriteText(session, command + (":<" + address.email) + ">" + extension + "\r\n");
  if (session->status == SMTP_SUCCESS) smtp_read_and_parse_code(session);
  return session->status;
}

int smtp_append_address_to_header(smtp_session* session, unsigned kind, const char* key) {
  std::string value;
  for (const smtp_address& address : session->addresses) {
    if (address.kind != kind) continue;
    if (!value.empty()) value += ", ";
    if (!address.name.empty()) value += '"' + address.name + "\" ";
    value += '<' + address.email + '>';
  }
  return value.empty() ? session->status : smtp_header_add(session, key, value.c_str());
}

int smtp_print_header(smtp_session* session, const smtp_header& header) {
  if (!header.value) return session->status;
  const base::UniqueText folded(
      smtp_fold_whitespace((header.key + ": " + *header.value).c_str(), HEADER_WIDTH));
  if (folded == nullptr) return smtp_status_code_set(session, SMTP_NO_MEMORY);
  return smtp_puts_terminate(session, folded.get());
}

int smtp_print_email(smtp_session* session, const char* body) {
  const base::UniqueText stuffed(smtp_str_replace("\n.", "\n..", body));
  if (stuffed == nullptr) return smtp_status_code_set(session, SMTP_NO_MEMORY);
  if (smtp_header_exists(session, "Content-Type") != 0)
    return smtp_print_nomime_email(session, stuffed.get());
  return smtp_print_mime_email(session, stuffed.get());
}

int smtp_print_nomime_email(smtp_session* session, const char* body) {
  return smtp_puts_terminate(session, body);
}

int smtp_print_mime_email(smtp_session* session, const char* body) {
  std::array<char, 15> boundary{};
  smtp_gen_mime_boundary(boundary.data());
  smtp_print_mime_header_and_body(session, boundary.data(), body);
  for (const smtp_attachment& attachment : session->attachments) {
    if (session->status != SMTP_SUCCESS) break;
    smtp_print_mime_attachment(session, boundary.data(), attachment);
  }
  return session->status != SMTP_SUCCESS ? session->status : smtp_print_mime_end(session, boundary.data());
}

int smtp_print_mime_header_and_body(smtp_session* session, const char* boundary, const char* body) {
  std::string text = "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=";
  text.append(boundary).append("\r\n\r\nMultipart MIME message.\r\n--").append(boundary);
  text.append("\r\nContent-Type: text/html; charset=\"UTF-8\"\r\n\r\n").append(body).append("\r\n\r\n");
  return WriteText(session, text);
}

int smtp_print_mime_attachment(smtp_session* session, const char* boundary,
                               const smtp_attachment& attachment) {
  std::string head = "--";
  head.append(boundary).append("\r\nContent-Type: application/octet-stream\r\n");
  head.append("Content-Disposition: attachment; filename=\"").append(attachment.name);
  head.append("\"\r\nContent-Transfer-Encoding: base64\r\n\r\n");
  if (WriteText(session, head) != SMTP_SUCCESS) return session->status;
  // Written without a copy: an attachment may be too large for another one.
  if (smtp_write(session, attachment.body.get(), attachment.bodyLength) != SMTP_SUCCESS)
    return session->status;
  return smtp_puts(session, "\r\n\r\n");
}

int smtp_print_mime_end(smtp_session* session, const char* boundary) {
  return WriteText(session, "--" + std::string(boundary) + "--\r\n");
}
