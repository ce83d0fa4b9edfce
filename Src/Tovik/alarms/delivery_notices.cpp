#include "Tovik/alarms/delivery_notices.h"

#include <cstring>

#include "Tovik/config/config.h"
#include "Tovik/config/url.h"
#include "Tovik/notices/notices.h"
#include "base/stoppable_wait.h"
#include "base/unique_handles.h"
#include "smtp/smtp_base64.h"

namespace alarms {
namespace {

using notices::Notice;

constexpr std::string_view HIDDEN_SECRET = "***";

// An exchange that a stop has cut is nobody's failure.
bool DeliveryStaysUntold() {
  return !notices::On() || base::StopGraceOver();
}

std::string MailServer() {
  if (*m_mail_url != '\0') return m_mail_url;
  return std::string(m_stmp_server_url) + ":" + m_smtp_server_port;
}

std::string RefusedRecipientWords(const MailDialogue& dialogue) {
  std::string refused_words;
  for (const std::string& refused : dialogue.RefusedRecipients())
    refused_words += (refused_words.empty() ? "" : "; ") + refused;
  return refused_words;
}

std::string EncodedSecret(const std::string& secret) {
  const base::UniqueText encoded_secret(smtp_base64_encode(secret.data(), secret.size()));
  return encoded_secret == nullptr ? "" : encoded_secret.get();
}

}  // namespace

void TellMail(const Alarm& alarm, const std::string& failure, const MailDialogue& dialogue) {
  if (DeliveryStaysUntold()) return;
  const std::string refused = RefusedRecipientWords(dialogue);
  if (failure.empty()) {
    if (!refused.empty()) notices::Tell<Notice::MAIL_REFUSED>(MailServer(), WithoutSecrets(refused));
    return;
  }
  std::string mail_words = failure;
  for (const std::string& more : {dialogue.Refusal(), refused})
    if (!more.empty()) mail_words += "; " + more;
  TellMailLost(alarm, WithoutSecrets(mail_words));
}

void TellMailLost(const Alarm& alarm, const std::string& why) {
  if (!DeliveryStaysUntold()) notices::Tell<Notice::MAIL_LOST>(alarm.title, MailServer(), why);
}

void TellMailWithoutFile(const char* path, int error) {
  if (!DeliveryStaysUntold()) notices::Tell<Notice::MAIL_WITHOUT_FILE>(UnreadFileWords(path, error));
}

void TellPostLost(const Alarm& alarm, const std::string& why) {
  if (!DeliveryStaysUntold())
    notices::Tell<Notice::POST_LOST>(alarm.title, UrlWithoutPath(m_webhook_server_url), why);
}

std::string UnreadFileWords(const char* path, int error) {
  const char* const file_key = std::strcmp(path, m_sz_cfg_file) == 0 ? " (CFG_FILE)" : "";
  return std::string("the file ") + path + file_key + " cannot be read: " + std::strerror(error);
}

std::string WithoutSecrets(std::string text) {
  const std::string password = m_stmp_auth_password;
  if (password.empty()) return text;
  const std::string user = m_stmp_auth_id;
  HideSecret(EncodedSecret(std::string(1, '\0') + user + '\0' + password), &text);
  HideSecret(EncodedSecret(password), &text);
  HideSecret(password, &text);
  return text;
}

void HideSecret(std::string_view secret, std::string* text) {
  // Goes on behind the stars: they may hold the secret, too.
  for (size_t at = 0; !secret.empty() && (at = text->find(secret, at)) != std::string::npos;
       at += HIDDEN_SECRET.size())
    text->replace(at, secret.size(), HIDDEN_SECRET);
}

}  // namespace alarms
