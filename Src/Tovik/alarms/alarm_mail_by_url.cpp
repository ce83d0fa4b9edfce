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

#include "Tovik/alarms/alarm_mail_dialogue.h"
#include "Tovik/alarms/alarm_mail_head.h"
#include "Tovik/alarms/curl_transfer.h"
#include "Tovik/alarms/delivery_notices.h"
#include "Tovik/alarms/recipient_line.h"
#include "Tovik/alarms/recipients.h"
#include "Tovik/config/config.h"
#include "base/stoppable_wait.h"
#include "charset/utf8_text.h"
#include "smtp/smtp.h"

namespace alarms {
namespace {

using Clock = std::chrono::steady_clock;

constexpr long USUAL_MAIL_TIMEOUT = 60;  // seconds
constexpr std::chrono::seconds QUIT_SECONDS{2};
constexpr size_t SUBJECT_BYTES = 1000;
constexpr size_t FILE_NAME_BYTES = 200;
constexpr size_t WORDS_SHOWN = 300;

struct MimeFree {
  void operator()(curl_mime* mime) const { curl_mime_free(mime); }
};
using UniqueMime = std::unique_ptr<curl_mime, MimeFree>;

// A list of libcurl. It throws std::bad_alloc when it cannot grow.
class TextList {
 public:
  void Add(const std::string& text) {
    curl_slist* const longer = curl_slist_append(list_.get(), text.c_str());
    if (longer == nullptr) throw std::bad_alloc();
    static_cast<void>(list_.release());
    list_.reset(longer);
  }
  curl_slist* Get() const { return list_.get(); }

 private:
  UniqueList list_;
};

// --- Whom it is for

struct Recipients {
  std::vector<Mailbox> to, cc;
  TextList all;
};

void Refuse(const Mailbox& mailbox, const char* reason) {
  const std::string shown =
      charset::OneLine("\"" + mailbox.name + "\" <" + mailbox.address + ">", WORDS_SHOWN);
  std::fprintf(stderr, "smtp refused: %s: %s\n", shown.c_str(), reason);
}

// The usable recipients of one list. The others are told on standard error.
std::vector<Mailbox> Take(int64_t count, const EMAIL_ENTRIES* list, TextList* all) {
  std::vector<Mailbox> taken;
  for (int64_t index = 0; list != nullptr && index < count; ++index) {
    const EMAIL_ENTRIES::Entry entry = list->At(index);
    const Mailbox mailbox = {charset::Repaired(entry.name), entry.address};
    if (mailbox.address.empty()) continue;  // of a blank line
    if (const char* const fault = RecipientFault(entry.name, entry.address)) {
      Refuse(mailbox, fault);
      continue;
    }
    all->Add(mailbox.address);
    taken.push_back(mailbox);
  }
  return taken;
}

Recipients TakeAll(const EMAIL_LIST& lists) {
  Recipients recipients;
  recipients.to = Take(lists.receiver_count, lists.receivers.get(), &recipients.all);
  recipients.cc = Take(lists.reference_count, lists.references.get(), &recipients.all);
  Take(lists.blind_count, lists.blinds.get(), &recipients.all);
  return recipients;
}

// --- What it says

TextList Headers(const Alarm& alarm, const Recipients& recipients) {
  const Mailbox sender = {charset::OneLine(m_send_name, LONGEST_NAME), m_send_email};
  TextList headers;
  headers.Add(DateHeader(std::time(nullptr)));
  headers.Add(MessageIdHeader(sender.address));
  if (!sender.address.empty()) headers.Add(AddressHeader("From", {sender}));
  if (!recipients.to.empty()) headers.Add(AddressHeader("To", recipients.to));
  if (!recipients.cc.empty()) headers.Add(AddressHeader("Cc", recipients.cc));
  headers.Add(TextHeader("Subject", charset::OneLine(alarm.title, SUBJECT_BYTES)));
  return headers;
}

CURLcode AddPart(curl_mime* mime, const char* type, const char* data, size_t size, curl_slist* headers) {
  curl_mimepart* const part = curl_mime_addpart(mime);
  if (part == nullptr) return CURLE_OUT_OF_MEMORY;
  CURLcode code = curl_mime_data(part, data, size);
  if (code == CURLE_OK) code = curl_mime_type(part, type);
  if (code == CURLE_OK) code = curl_mime_encoder(part, "base64");
  if (code == CURLE_OK) code = curl_mime_headers(part, headers, 0);
  return code;
}

CURLcode AddParts(curl_mime* mime, const char* body, const Attachment* attachment, TextList* disposition) {
  if (mime == nullptr) return CURLE_OUT_OF_MEMORY;
  const CURLcode code = AddPart(mime, "text/html; charset=UTF-8", body, CURL_ZERO_TERMINATED, nullptr);
  if (code != CURLE_OK || attachment == nullptr) return code;
  disposition->Add(DispositionHeader(charset::OneLine(attachment->name, FILE_NAME_BYTES)));
  return AddPart(mime, "application/octet-stream", attachment->content.get(), attachment->size,
                 disposition->Get());
}

// --- How it goes

// One delivery: what libcurl calls back with.
struct Delivery {
  MailDialogue dialogue;
  std::optional<Clock::time_point> accepted;
  bool printed = false;  // the dialogue, on standard error
  bool content = false;  // what was sent last was content
};

// Passes the dialogue on to smtp_overhear, if set. libcurl does not report the dot that ends the content, so
// it is added here.
void Overhear(Delivery* delivery, bool in, std::string_view line) {
  if (smtp_overhear == nullptr) return;
  if (in && std::exchange(delivery->content, false)) smtp_overhear("Client", ".\r\n");
  smtp_overhear(in ? "Server" : "Client", line);
}

int Listen(CURL*, curl_infotype type, char* data, size_t size, void* user) try {
  auto* const delivery = static_cast<Delivery*>(user);
  if (type == CURLINFO_DATA_OUT) delivery->content = true;
  if (type != CURLINFO_HEADER_IN && type != CURLINFO_HEADER_OUT) return 0;
  const bool in = type == CURLINFO_HEADER_IN;
  Overhear(delivery, in, {data, size});
  MailDialogue& dialogue = delivery->dialogue;
  const std::string shown = in ? dialogue.Received({data, size}) : dialogue.Sent({data, size});
  if (delivery->printed) std::fprintf(stderr, "[smtp %s]: %s\n", in ? "Server" : "Client", shown.c_str());
  if (dialogue.Accepted() && !delivery->accepted) delivery->accepted = Clock::now();
  return 0;
} catch (const std::bad_alloc&) {
  return 0;  // this line is not told
}

// While libcurl waits for the reply to QUIT, it ignores the transfer's time limits but calls this every
// second.
int GiveUp(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  const auto* const delivery = static_cast<const Delivery*>(user);
  const bool no_answer = delivery->accepted && Clock::now() - *delivery->accepted > QUIT_SECONDS;
  return base::StopGraceOver() || no_answer ? 1 : 0;
}

void SetSecurity(CURL* handle) {
  const bool from_the_start = m_mail_url[4] == 's' || m_mail_url[4] == 'S';
  const bool judged = from_the_start || m_mail_tls == 2;
  const long modes[] = {CURLUSESSL_NONE, CURLUSESSL_TRY, CURLUSESSL_ALL};
  curl_easy_setopt(handle, CURLOPT_USE_SSL, from_the_start ? long{CURLUSESSL_ALL} : modes[m_mail_tls]);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, judged ? 1L : 0L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, judged ? 2L : 0L);
  // SSL_CERT_FILE may name another store of certificates, as for every program that uses OpenSSL.
  const char* const store = std::getenv("SSL_CERT_FILE");
  if (store != nullptr) curl_easy_setopt(handle, CURLOPT_CAINFO, store);
}

void SetLogin(CURL* handle) {
  if (m_stmp_auth == SMTP_METHOD_NONE) return;
  curl_easy_setopt(handle, CURLOPT_LOGIN_OPTIONS,
                   m_stmp_auth == SMTP_METHOD_PLAIN ? "AUTH=PLAIN" : "AUTH=LOGIN");
  curl_easy_setopt(handle, CURLOPT_USERNAME, static_cast<const char*>(m_stmp_auth_id));
  curl_easy_setopt(handle, CURLOPT_PASSWORD, static_cast<const char*>(m_stmp_auth_password));
}

void SetServer(CURL* handle) {
  const long seconds = m_mail_timeout == 0 ? USUAL_MAIL_TIMEOUT : m_mail_timeout;
  LimitTransferTime(handle, seconds);
  curl_easy_setopt(handle, CURLOPT_SERVER_RESPONSE_TIMEOUT, seconds);
  curl_easy_setopt(handle, CURLOPT_URL, static_cast<const char*>(m_mail_url));
  curl_easy_setopt(handle, CURLOPT_PROXY, "");
  // QUIT is then part of the transfer, so GiveUp can end the wait for its reply.
  curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
#if LIBCURL_VERSION_NUM >= 0x074500
  curl_easy_setopt(handle, CURLOPT_MAIL_RCPT_ALLLOWFAILS, 1L);
#endif
  SetSecurity(handle);
  SetLogin(handle);
}

void SetCallbacks(CURL* handle, Delivery* delivery) {
  curl_easy_setopt(handle, CURLOPT_VERBOSE, 1L);
  curl_easy_setopt(handle, CURLOPT_DEBUGFUNCTION, Listen);
  curl_easy_setopt(handle, CURLOPT_DEBUGDATA, delivery);
  curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, GiveUp);
  curl_easy_setopt(handle, CURLOPT_XFERINFODATA, delivery);
}

// --- What came of it

int Fail(const Alarm& alarm, const std::string& what) {
  std::fprintf(stderr, "smtp failed: %s\n", what.c_str());
  TellMailLost(alarm, WithoutSecrets(what));
  return -1;
}

int Conclude(const Alarm& alarm, CURLcode code, const char* details, const MailDialogue& dialogue) {
  for (const std::string& refused : dialogue.RefusedRecipients())
    std::fprintf(stderr, "smtp refused: %s\n", refused.c_str());
  if (code == CURLE_OK || dialogue.Accepted()) {
    TellMail(alarm, "", dialogue);
    return 1;
  }
  std::string what = charset::OneLine(*details != '\0' ? details : curl_easy_strerror(code), WORDS_SHOWN);
  if (!dialogue.Refusal().empty()) what += "; " + dialogue.Refusal();
  if (code == CURLE_OPERATION_TIMEDOUT) what += "; waiting at " + dialogue.Step();
  return Fail(alarm, what);
}

int Deliver(const Alarm& alarm, const char* body, const Attachment* attachment) {
  const Recipients recipients = TakeAll(*gEmailLists.Get());
  if (recipients.all.Get() == nullptr) return Fail(alarm, "no recipients");
  const TextList headers = Headers(alarm, recipients);
  TextList disposition;
  Delivery delivery;
  delivery.printed = (static_cast<unsigned>(m_stmp_flags) & SMTP_FLAG_DEBUG) != 0;
  std::array<char, CURL_ERROR_SIZE> details{};
  UniqueMime mime;  // outlives the handle
  const UniqueCurl handle(curl_easy_init());
  if (handle == nullptr) return Fail(alarm, smtp_status_code_errstr(SMTP_NO_MEMORY));
  mime.reset(curl_mime_init(handle.get()));
  const CURLcode composed = AddParts(mime.get(), body, attachment, &disposition);
  if (composed != CURLE_OK) return Fail(alarm, curl_easy_strerror(composed));
  SetServer(handle.get());
  SetCallbacks(handle.get(), &delivery);
  curl_easy_setopt(handle.get(), CURLOPT_ERRORBUFFER, details.data());
  curl_easy_setopt(handle.get(), CURLOPT_MAIL_FROM, static_cast<const char*>(m_send_email));
  curl_easy_setopt(handle.get(), CURLOPT_MAIL_RCPT, recipients.all.Get());
  curl_easy_setopt(handle.get(), CURLOPT_HTTPHEADER, headers.Get());
  curl_easy_setopt(handle.get(), CURLOPT_MIMEPOST, mime.get());
  const CURLcode code = Transfer(handle.get());
  return Conclude(alarm, code, details.data(), delivery.dialogue);
}

}  // namespace

int MailByUrl(const Alarm& alarm, const char* body, const Attachment* attachment) {
  const bool sender_fits = *m_send_email == '\0' || RecipientFault("", m_send_email) == nullptr;
  const bool method_fits = m_stmp_auth >= SMTP_METHOD_NONE && m_stmp_auth <= SMTP_METHOD_LOGIN;
  if (!sender_fits || !method_fits) return Fail(alarm, smtp_status_code_errstr(SMTP_INVALID));
  return Deliver(alarm, body, attachment);
}

}  // namespace alarms
