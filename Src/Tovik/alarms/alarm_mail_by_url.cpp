#include "Tovik/alarms/alarm_mail_by_url.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "Tovik/alarms/alarm_mail_head.h"
#include "Tovik/alarms/alarm_mail_refusals.h"
#include "Tovik/alarms/curl_transfer.h"
#include "Tovik/alarms/delivery_notices.h"
#include "Tovik/alarms/recipient_line.h"
#include "Tovik/alarms/recipients.h"
#include "Tovik/config/config.h"
#include "base/stoppable_wait.h"
#include "charset/utf8_repair.h"
#include "smtp/smtp.h"

namespace alarms {
namespace {

using Clock = std::chrono::steady_clock;

constexpr long USUAL_MAIL_TIMEOUT = 60;  // seconds
constexpr std::chrono::seconds QUIT_SECONDS{2};
constexpr size_t SUBJECT_BYTES = 1000;
constexpr size_t FILE_NAME_BYTES = 200;
constexpr size_t MAIL_WORDS_SHOWN = 300;

// --- Whom it is for

struct MailRecipients {
  std::vector<Mailbox> to, cc;
  CurlList all;
};

void RefuseRecipient(const Mailbox& mailbox, const char* reason) {
  const std::string shown =
      charset::OneLine("\"" + mailbox.name + "\" <" + mailbox.address + ">", MAIL_WORDS_SHOWN);
  std::fprintf(stderr, "smtp refused: %s: %s\n", shown.c_str(), reason);
}

// The usable recipients of one list. The others are told on standard error.
std::vector<Mailbox> TakeRecipients(int64_t count, const EMAIL_ENTRIES* list, CurlList* all) {
  std::vector<Mailbox> taken_recipients;
  for (int64_t index = 0; list != nullptr && index < count; ++index) {
    const EMAIL_ENTRIES::Entry entry = list->At(index);
    const Mailbox mailbox = {charset::Repaired(entry.name), entry.address};
    if (mailbox.address.empty()) continue;  // of a blank line
    if (const char* const fault = RecipientFault(entry.name, entry.address)) {
      RefuseRecipient(mailbox, fault);
      continue;
    }
    all->Add(mailbox.address);
    taken_recipients.push_back(mailbox);
  }
  return taken_recipients;
}

MailRecipients TakeAllRecipients(const EMAIL_LIST& lists) {
  MailRecipients recipients;
  recipients.to = TakeRecipients(lists.receiver_count, lists.receivers.get(), &recipients.all);
  recipients.cc = TakeRecipients(lists.reference_count, lists.references.get(), &recipients.all);
  TakeRecipients(lists.blind_count, lists.blinds.get(), &recipients.all);
  return recipients;
}

// --- What it says

CurlList MailHead(const Alarm& alarm, const MailRecipients& recipients) {
  const Mailbox sender = {charset::OneLine(m_send_name, LONGEST_RECIPIENT_NAME), m_send_email};
  CurlList mail_head;
  mail_head.Add(MailHeadDate(std::time(nullptr)));
  mail_head.Add(MailHeadId(sender.address));
  if (!sender.address.empty()) mail_head.Add(MailHeadAddresses("From", {sender}));
  if (!recipients.to.empty()) mail_head.Add(MailHeadAddresses("To", recipients.to));
  if (!recipients.cc.empty()) mail_head.Add(MailHeadAddresses("Cc", recipients.cc));
  mail_head.Add(MailHeadText("Subject", charset::OneLine(alarm.title, SUBJECT_BYTES)));
  return mail_head;
}

CURLcode AddMailPart(curl_mime* mail_parts, const char* type, const char* data, size_t size,
                     curl_slist* headers) {
  curl_mimepart* const mail_part = curl_mime_addpart(mail_parts);
  if (mail_part == nullptr) return CURLE_OUT_OF_MEMORY;
  CURLcode code = curl_mime_data(mail_part, data, size);
  if (code == CURLE_OK) code = curl_mime_type(mail_part, type);
  if (code == CURLE_OK) code = curl_mime_encoder(mail_part, "base64");
  if (code == CURLE_OK) code = curl_mime_headers(mail_part, headers, 0);
  return code;
}

CURLcode AddMailParts(curl_mime* mail_parts, const char* body, const Attachment* attachment,
                      CurlList* disposition) {
  if (mail_parts == nullptr) return CURLE_OUT_OF_MEMORY;
  const CURLcode code =
      AddMailPart(mail_parts, "text/html; charset=UTF-8", body, CURL_ZERO_TERMINATED, nullptr);
  if (code != CURLE_OK || attachment == nullptr) return code;
  disposition->Add(MailHeadDisposition(charset::OneLine(attachment->name, FILE_NAME_BYTES)));
  return AddMailPart(mail_parts, "application/octet-stream", attachment->content.get(), attachment->size,
                     disposition->Get());
}

// --- How it goes

// One delivery: what libcurl calls back with.
struct MailDelivery {
  MailDialogue dialogue;
  std::optional<Clock::time_point> accepted;
  bool dialogue_printed = false;  // on standard error
  bool content_sent = false;      // what was sent last was content
};

// Passes the dialogue on to smtp_overhear, if set. libcurl does not report the dot that ends the content, so
// it is added here.
void OverhearMail(MailDelivery* delivery, bool in, std::string_view line) {
  if (smtp_overhear == nullptr) return;
  if (in && std::exchange(delivery->content_sent, false)) smtp_overhear("Client", ".\r\n");
  smtp_overhear(in ? "Server" : "Client", line);
}

int ListenToMail(CURL*, curl_infotype type, char* data, size_t size, void* user) try {
  auto* const delivery = static_cast<MailDelivery*>(user);
  if (type == CURLINFO_DATA_OUT) delivery->content_sent = true;
  if (type != CURLINFO_HEADER_IN && type != CURLINFO_HEADER_OUT) return 0;
  const bool in = type == CURLINFO_HEADER_IN;
  OverhearMail(delivery, in, {data, size});
  MailDialogue& dialogue = delivery->dialogue;
  const std::string shown = in ? dialogue.Received({data, size}) : dialogue.Sent({data, size});
  if (delivery->dialogue_printed)
    std::fprintf(stderr, "[smtp %s]: %s\n", in ? "Server" : "Client", shown.c_str());
  if (dialogue.Accepted() && !delivery->accepted) delivery->accepted = Clock::now();
  return 0;
} catch (const std::bad_alloc&) {
  return 0;  // this line is not told
}

// While libcurl waits for the reply to QUIT, it ignores the transfer's time limits but calls this every
// second.
int GiveUpMail(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  const auto* const delivery = static_cast<const MailDelivery*>(user);
  const bool no_quit_reply = delivery->accepted && Clock::now() - *delivery->accepted > QUIT_SECONDS;
  return base::StopGraceOver() || no_quit_reply ? 1 : 0;
}

void SetMailSecurity(CURL* mail) {
  const bool tls_from_the_start = m_mail_url[4] == 's' || m_mail_url[4] == 'S';
  const bool certificate_judged = tls_from_the_start || m_mail_tls == 2;
  const long tls_modes[] = {CURLUSESSL_NONE, CURLUSESSL_TRY, CURLUSESSL_ALL};
  curl_easy_setopt(mail, CURLOPT_USE_SSL, tls_from_the_start ? long{CURLUSESSL_ALL} : tls_modes[m_mail_tls]);
  curl_easy_setopt(mail, CURLOPT_SSL_VERIFYPEER, certificate_judged ? 1L : 0L);
  curl_easy_setopt(mail, CURLOPT_SSL_VERIFYHOST, certificate_judged ? 2L : 0L);
  // SSL_CERT_FILE may name another store of certificates, as for every program that uses OpenSSL.
  const char* const certificate_store = std::getenv("SSL_CERT_FILE");
  if (certificate_store != nullptr) curl_easy_setopt(mail, CURLOPT_CAINFO, certificate_store);
}

void SetMailLogin(CURL* mail) {
  if (m_stmp_auth == SMTP_METHOD_NONE) return;
  curl_easy_setopt(mail, CURLOPT_LOGIN_OPTIONS,
                   m_stmp_auth == SMTP_METHOD_PLAIN ? "AUTH=PLAIN" : "AUTH=LOGIN");
  curl_easy_setopt(mail, CURLOPT_USERNAME, static_cast<const char*>(m_stmp_auth_id));
  curl_easy_setopt(mail, CURLOPT_PASSWORD, static_cast<const char*>(m_stmp_auth_password));
}

void SetMailServer(CURL* mail) {
  const long mail_seconds = m_mail_timeout == 0 ? USUAL_MAIL_TIMEOUT : m_mail_timeout;
  LimitTransferTime(mail, mail_seconds);
  curl_easy_setopt(mail, CURLOPT_SERVER_RESPONSE_TIMEOUT, mail_seconds);
  curl_easy_setopt(mail, CURLOPT_URL, static_cast<const char*>(m_mail_url));
  curl_easy_setopt(mail, CURLOPT_PROXY, "");
  // QUIT is then part of the transfer, so GiveUpMail can end the wait for its reply.
  curl_easy_setopt(mail, CURLOPT_FORBID_REUSE, 1L);
#if LIBCURL_VERSION_NUM >= 0x074500
  curl_easy_setopt(mail, CURLOPT_MAIL_RCPT_ALLLOWFAILS, 1L);
#endif
  SetMailSecurity(mail);
  SetMailLogin(mail);
}

// --- What came of it

int FailByUrl(const Alarm& alarm, const std::string& mail_failure) {
  std::fprintf(stderr, "smtp failed: %s\n", mail_failure.c_str());
  TellMailLost(alarm, WithoutSecrets(mail_failure));
  return -1;
}

int ConcludeByUrl(const Alarm& alarm, CURLcode code, const char* mail_error, const MailDialogue& dialogue) {
  for (const std::string& refused : dialogue.RefusedRecipients())
    std::fprintf(stderr, "smtp refused: %s\n", refused.c_str());
  if (code == CURLE_OK || dialogue.Accepted()) {
    TellMail(alarm, "", dialogue);
    return 1;
  }
  std::string mail_failure =
      charset::OneLine(*mail_error != '\0' ? mail_error : curl_easy_strerror(code), MAIL_WORDS_SHOWN);
  if (!dialogue.Refusal().empty()) mail_failure += "; " + dialogue.Refusal();
  if (code == CURLE_OPERATION_TIMEDOUT) mail_failure += "; waiting at " + dialogue.Step();
  return FailByUrl(alarm, mail_failure);
}

int DeliverByUrl(const Alarm& alarm, const char* body, const Attachment* attachment) {
  const MailRecipients recipients = TakeAllRecipients(*gEmailLists.Get());
  if (recipients.all.Get() == nullptr) return FailByUrl(alarm, "no recipients");
  const CurlList mail_head = MailHead(alarm, recipients);
  CurlList disposition;
  MailDelivery delivery;
  delivery.dialogue_printed = (static_cast<unsigned>(m_stmp_flags) & SMTP_FLAG_DEBUG) != 0;
  std::array<char, CURL_ERROR_SIZE> mail_error{};
  UniqueCurlMime mail_parts;  // outlives the transfer
  const UniqueCurl mail(curl_easy_init());
  if (mail == nullptr) return FailByUrl(alarm, smtp_status_code_errstr(SMTP_NO_MEMORY));
  mail_parts.reset(curl_mime_init(mail.get()));
  const CURLcode composed = AddMailParts(mail_parts.get(), body, attachment, &disposition);
  if (composed != CURLE_OK) return FailByUrl(alarm, curl_easy_strerror(composed));
  SetMailServer(mail.get());
  HearTransfer(mail.get(), ListenToMail, &delivery);
  WatchTransfer(mail.get(), GiveUpMail, &delivery);
  curl_easy_setopt(mail.get(), CURLOPT_ERRORBUFFER, mail_error.data());
  curl_easy_setopt(mail.get(), CURLOPT_MAIL_FROM, static_cast<const char*>(m_send_email));
  curl_easy_setopt(mail.get(), CURLOPT_MAIL_RCPT, recipients.all.Get());
  curl_easy_setopt(mail.get(), CURLOPT_HTTPHEADER, mail_head.Get());
  curl_easy_setopt(mail.get(), CURLOPT_MIMEPOST, mail_parts.get());
  const CURLcode code = Transfer(mail.get());
  return ConcludeByUrl(alarm, code, mail_error.data(), delivery.dialogue);
}

}  // namespace

int MailByUrl(const Alarm& alarm, const char* body, const Attachment* attachment) {
  const bool sender_fits = *m_send_email == '\0' || RecipientFault("", m_send_email) == nullptr;
  const bool method_fits = m_stmp_auth >= SMTP_METHOD_NONE && m_stmp_auth <= SMTP_METHOD_LOGIN;
  if (!sender_fits || !method_fits) return FailByUrl(alarm, smtp_status_code_errstr(SMTP_INVALID));
  return DeliverByUrl(alarm, body, attachment);
}

}  // namespace alarms
