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

using UrlMailClock = std::chrono::steady_clock;

constexpr long USUAL_URL_MAIL_TIMEOUT = 60;  // seconds
constexpr std::chrono::seconds URL_MAIL_QUIT_SECONDS{2};
constexpr size_t URL_MAIL_SUBJECT_BYTES = 1000;
constexpr size_t URL_MAIL_FILE_NAME_BYTES = 200;
constexpr size_t URL_MAIL_WORDS_SHOWN = 300;

// --- Whom it is for

struct UrlMailRecipients {
  std::vector<Mailbox> to, cc;
  CurlList all;
};

void RefuseByUrl(const Mailbox& url_mailbox, const char* reason) {
  const std::string refused_by_url =
      charset::OneLine("\"" + url_mailbox.name + "\" <" + url_mailbox.address + ">", URL_MAIL_WORDS_SHOWN);
  std::fprintf(stderr, "smtp refused: %s: %s\n", refused_by_url.c_str(), reason);
}

// The usable recipients of one list. The others are told on standard error.
std::vector<Mailbox> TakeUrlRecipients(int64_t count, const EMAIL_ENTRIES* url_list, CurlList* all_by_url) {
  std::vector<Mailbox> taken_by_url;
  for (int64_t index = 0; url_list != nullptr && index < count; ++index) {
    const EMAIL_ENTRIES::Entry url_recipient = url_list->At(index);
    const Mailbox url_mailbox = {charset::Repaired(url_recipient.name), url_recipient.address};
    if (url_mailbox.address.empty()) continue;  // of a blank line
    if (const char* const fault = RecipientFault(url_recipient.name, url_recipient.address)) {
      RefuseByUrl(url_mailbox, fault);
      continue;
    }
    all_by_url->Add(url_mailbox.address);
    taken_by_url.push_back(url_mailbox);
  }
  return taken_by_url;
}

UrlMailRecipients TakeAllUrlRecipients(const EMAIL_LIST& lists) {
  UrlMailRecipients url_recipients;
  url_recipients.to = TakeUrlRecipients(lists.receiver_count, lists.receivers.get(), &url_recipients.all);
  url_recipients.cc = TakeUrlRecipients(lists.reference_count, lists.references.get(), &url_recipients.all);
  TakeUrlRecipients(lists.blind_count, lists.blinds.get(), &url_recipients.all);
  return url_recipients;
}

// --- What it says

CurlList UrlMailHead(const Alarm& alarm, const UrlMailRecipients& url_recipients) {
  const Mailbox url_sender = {charset::OneLine(m_send_name, LONGEST_RECIPIENT_NAME), m_send_email};
  CurlList url_mail_head;
  url_mail_head.Add(MailHeadDate(std::time(nullptr)));
  url_mail_head.Add(MailHeadId(url_sender.address));
  if (!url_sender.address.empty()) url_mail_head.Add(MailHeadAddresses("From", {url_sender}));
  if (!url_recipients.to.empty()) url_mail_head.Add(MailHeadAddresses("To", url_recipients.to));
  if (!url_recipients.cc.empty()) url_mail_head.Add(MailHeadAddresses("Cc", url_recipients.cc));
  url_mail_head.Add(MailHeadText("Subject", charset::OneLine(alarm.title, URL_MAIL_SUBJECT_BYTES)));
  return url_mail_head;
}

CURLcode AddMailPart(curl_mime* curl_parts, const char* type, const char* data, size_t size,
                     curl_slist* headers) {
  curl_mimepart* const curl_part = curl_mime_addpart(curl_parts);
  if (curl_part == nullptr) return CURLE_OUT_OF_MEMORY;
  CURLcode code = curl_mime_data(curl_part, data, size);
  if (code == CURLE_OK) code = curl_mime_type(curl_part, type);
  if (code == CURLE_OK) code = curl_mime_encoder(curl_part, "base64");
  if (code == CURLE_OK) code = curl_mime_headers(curl_part, headers, 0);
  return code;
}

CURLcode AddMailParts(curl_mime* curl_parts, const char* body, const Attachment* attachment,
                      CurlList* disposition) {
  if (curl_parts == nullptr) return CURLE_OUT_OF_MEMORY;
  const CURLcode code =
      AddMailPart(curl_parts, "text/html; charset=UTF-8", body, CURL_ZERO_TERMINATED, nullptr);
  if (code != CURLE_OK || attachment == nullptr) return code;
  disposition->Add(MailHeadDisposition(charset::OneLine(attachment->name, URL_MAIL_FILE_NAME_BYTES)));
  return AddMailPart(curl_parts, "application/octet-stream", attachment->content.get(), attachment->size,
                     disposition->Get());
}

// --- How it goes

// One delivery: what libcurl calls back with.
struct UrlMailDelivery {
  MailRefusals refusals;
  std::optional<UrlMailClock::time_point> accepted_by_url;
  bool curl_dialogue_printed = false;  // on standard error
  bool curl_sent_content = false;      // what was sent last was content
};

// Passes the dialogue on to smtp_overhear, if set. libcurl does not report the dot that ends the content, so
// it is added here.
void OverhearMail(UrlMailDelivery* url_delivery, bool curl_in, std::string_view curl_line) {
  if (smtp_overhear == nullptr) return;
  if (curl_in && std::exchange(url_delivery->curl_sent_content, false)) smtp_overhear("Client", ".\r\n");
  smtp_overhear(curl_in ? "Server" : "Client", curl_line);
}

int ListenToUrlMail(CURL*, curl_infotype type, char* data, size_t size, void* user) try {
  auto* const url_delivery = static_cast<UrlMailDelivery*>(user);
  if (type == CURLINFO_DATA_OUT) url_delivery->curl_sent_content = true;
  if (type != CURLINFO_HEADER_IN && type != CURLINFO_HEADER_OUT) return 0;
  const bool curl_in = type == CURLINFO_HEADER_IN;
  OverhearMail(url_delivery, curl_in, {data, size});
  MailRefusals& curl_refusals = url_delivery->refusals;
  const std::string curl_line =
      curl_in ? curl_refusals.Received({data, size}) : curl_refusals.Sent({data, size});
  if (url_delivery->curl_dialogue_printed)
    std::fprintf(stderr, "[smtp %s]: %s\n", curl_in ? "Server" : "Client", curl_line.c_str());
  if (curl_refusals.Accepted() && !url_delivery->accepted_by_url)
    url_delivery->accepted_by_url = UrlMailClock::now();
  return 0;
} catch (const std::bad_alloc&) {
  return 0;  // this line is not told
}

// While libcurl waits for the reply to QUIT, it ignores the transfer's time limits but calls this every
// second.
int GiveUpUrlMail(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  const auto* const url_delivery = static_cast<const UrlMailDelivery*>(user);
  const bool curl_quit_unanswered =
      url_delivery->accepted_by_url &&
      UrlMailClock::now() - *url_delivery->accepted_by_url > URL_MAIL_QUIT_SECONDS;
  return base::StopGraceOver() || curl_quit_unanswered ? 1 : 0;
}

void SetUrlMailSecurity(CURL* mail) {
  const bool tls_from_the_start = m_mail_url[4] == 's' || m_mail_url[4] == 'S';
  const bool curl_certificate_judged = tls_from_the_start || m_mail_tls == 2;
  const long curl_tls_modes[] = {CURLUSESSL_NONE, CURLUSESSL_TRY, CURLUSESSL_ALL};
  curl_easy_setopt(mail, CURLOPT_USE_SSL,
                   tls_from_the_start ? long{CURLUSESSL_ALL} : curl_tls_modes[m_mail_tls]);
  curl_easy_setopt(mail, CURLOPT_SSL_VERIFYPEER, curl_certificate_judged ? 1L : 0L);
  curl_easy_setopt(mail, CURLOPT_SSL_VERIFYHOST, curl_certificate_judged ? 2L : 0L);
  // SSL_CERT_FILE may name another store of certificates, as for every program that uses OpenSSL.
  const char* const curl_certificates = std::getenv("SSL_CERT_FILE");
  if (curl_certificates != nullptr) curl_easy_setopt(mail, CURLOPT_CAINFO, curl_certificates);
}

void SetUrlMailLogin(CURL* mail) {
  if (m_stmp_auth == SMTP_METHOD_NONE) return;
  curl_easy_setopt(mail, CURLOPT_LOGIN_OPTIONS,
                   m_stmp_auth == SMTP_METHOD_PLAIN ? "AUTH=PLAIN" : "AUTH=LOGIN");
  curl_easy_setopt(mail, CURLOPT_USERNAME, static_cast<const char*>(m_stmp_auth_id));
  curl_easy_setopt(mail, CURLOPT_PASSWORD, static_cast<const char*>(m_stmp_auth_password));
}

void SetUrlMailServer(CURL* mail) {
  const long url_mail_seconds = m_mail_timeout == 0 ? USUAL_URL_MAIL_TIMEOUT : m_mail_timeout;
  LimitTransferTime(mail, url_mail_seconds);
  curl_easy_setopt(mail, CURLOPT_SERVER_RESPONSE_TIMEOUT, url_mail_seconds);
  curl_easy_setopt(mail, CURLOPT_URL, static_cast<const char*>(m_mail_url));
  curl_easy_setopt(mail, CURLOPT_PROXY, "");
  // QUIT is then part of the transfer, so GiveUpUrlMail can end the wait for its reply.
  curl_easy_setopt(mail, CURLOPT_FORBID_REUSE, 1L);
#if LIBCURL_VERSION_NUM >= 0x074500
  curl_easy_setopt(mail, CURLOPT_MAIL_RCPT_ALLLOWFAILS, 1L);
#endif
  SetUrlMailSecurity(mail);
  SetUrlMailLogin(mail);
}

// --- What came of it

int FailByUrl(const Alarm& alarm, const std::string& url_failure) {
  std::fprintf(stderr, "smtp failed: %s\n", url_failure.c_str());
  TellMailLost(alarm, WithoutSecrets(url_failure));
  return -1;
}

int ConcludeByUrl(const Alarm& alarm, CURLcode code, const char* url_error,
                  const MailRefusals& url_refusals) {
  for (const std::string& refused_by_url : url_refusals.RefusedRecipients())
    std::fprintf(stderr, "smtp refused: %s\n", refused_by_url.c_str());
  if (code == CURLE_OK || url_refusals.Accepted()) {
    TellMail(alarm, "", url_refusals);
    return 1;
  }
  std::string url_failure =
      charset::OneLine(*url_error != '\0' ? url_error : curl_easy_strerror(code), URL_MAIL_WORDS_SHOWN);
  if (!url_refusals.Refusal().empty()) url_failure += "; " + url_refusals.Refusal();
  if (code == CURLE_OPERATION_TIMEDOUT) url_failure += "; waiting at " + url_refusals.Step();
  return FailByUrl(alarm, url_failure);
}

int DeliverByUrl(const Alarm& alarm, const char* body, const Attachment* attachment) {
  const UrlMailRecipients url_recipients = TakeAllUrlRecipients(*gEmailLists.Get());
  if (url_recipients.all.Get() == nullptr) return FailByUrl(alarm, "no recipients");
  const CurlList url_mail_head = UrlMailHead(alarm, url_recipients);
  CurlList disposition;
  UrlMailDelivery url_delivery;
  url_delivery.curl_dialogue_printed = (static_cast<unsigned>(m_stmp_flags) & SMTP_FLAG_DEBUG) != 0;
  std::array<char, CURL_ERROR_SIZE> url_error{};
  UniqueCurlMime curl_parts;  // outlives the transfer
  const UniqueCurl mail(curl_easy_init());
  if (mail == nullptr) return FailByUrl(alarm, smtp_status_code_errstr(SMTP_NO_MEMORY));
  curl_parts.reset(curl_mime_init(mail.get()));
  const CURLcode composed = AddMailParts(curl_parts.get(), body, attachment, &disposition);
  if (composed != CURLE_OK) return FailByUrl(alarm, curl_easy_strerror(composed));
  SetUrlMailServer(mail.get());
  HearTransfer(mail.get(), ListenToUrlMail, &url_delivery);
  WatchTransfer(mail.get(), GiveUpUrlMail, &url_delivery);
  curl_easy_setopt(mail.get(), CURLOPT_ERRORBUFFER, url_error.data());
  curl_easy_setopt(mail.get(), CURLOPT_MAIL_FROM, static_cast<const char*>(m_send_email));
  curl_easy_setopt(mail.get(), CURLOPT_MAIL_RCPT, url_recipients.all.Get());
  curl_easy_setopt(mail.get(), CURLOPT_HTTPHEADER, url_mail_head.Get());
  curl_easy_setopt(mail.get(), CURLOPT_MIMEPOST, curl_parts.get());
  const CURLcode code = Transfer(mail.get());
  return ConcludeByUrl(alarm, code, url_error.data(), url_delivery.refusals);
}

}  // namespace

bool MailGoesByUrl() {
  return *m_mail_url != '\0';
}

int MailByUrl(const Alarm& alarm, const char* body, const Attachment* attachment) {
  const bool url_sender_fits = *m_send_email == '\0' || RecipientFault("", m_send_email) == nullptr;
  const bool url_login_fits = m_stmp_auth >= SMTP_METHOD_NONE && m_stmp_auth <= SMTP_METHOD_LOGIN;
  if (!url_sender_fits || !url_login_fits) return FailByUrl(alarm, smtp_status_code_errstr(SMTP_INVALID));
  return DeliverByUrl(alarm, body, attachment);
}

}  // namespace alarms
