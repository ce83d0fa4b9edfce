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

constexpr std::string_view DELIVERY_SECRET_STARS = "***";

// An exchange that a stop has cut is nobody's failure.
bool DeliveryStaysUntold() {
  return !notices::On() || base::StopGraceOver();
}

std::string DeliveryMailServer() {
  if (*m_mail_url != '\0') return m_mail_url;
  return std::string(m_stmp_server_url) + ":" + m_smtp_server_port;
}

std::string RefusedDeliveryWords(const MailRefusals& refusals) {
  std::string refused_delivery_words;
  for (const std::string& refused_delivery : refusals.RefusedRecipients())
    refused_delivery_words += (refused_delivery_words.empty() ? "" : "; ") + refused_delivery;
  return refused_delivery_words;
}

std::string EncodedDeliverySecret(const std::string& secret) {
  const base::UniqueText encoded_secret(smtp_base64_encode(secret.data(), secret.size()));
  return encoded_secret == nullptr ? "" : encoded_secret.get();
}

}  // namespace

void TellMail(const Alarm& alarm, const std::string& failure, const MailRefusals& refusals) {
  if (DeliveryStaysUntold()) return;
  const std::string refused_deliveries = RefusedDeliveryWords(refusals);
  if (failure.empty()) {
    if (!refused_deliveries.empty())
      notices::Tell<Notice::MAIL_REFUSED>(DeliveryMailServer(), WithoutSecrets(refused_deliveries));
    return;
  }
  std::string delivery_failure = failure;
  for (const std::string& more : {refusals.Refusal(), refused_deliveries})
    if (!more.empty()) delivery_failure += "; " + more;
  TellMailLost(alarm, WithoutSecrets(delivery_failure));
}

void TellMailLost(const Alarm& alarm, const std::string& why) {
  if (!DeliveryStaysUntold()) notices::Tell<Notice::MAIL_LOST>(alarm.title, DeliveryMailServer(), why);
}

void TellMailWithoutFile(const char* undelivered_file, int delivery_error) {
  if (!DeliveryStaysUntold())
    notices::Tell<Notice::MAIL_WITHOUT_FILE>(UnreadFileWords(undelivered_file, delivery_error));
}

void TellPostLost(const Alarm& alarm, const std::string& why) {
  if (!DeliveryStaysUntold())
    notices::Tell<Notice::POST_LOST>(alarm.title, UrlWithoutPath(m_webhook_server_url), why);
}

std::string UnreadFileWords(const char* undelivered_file, int delivery_error) {
  const char* const undelivered_key = std::strcmp(undelivered_file, m_sz_cfg_file) == 0 ? " (CFG_FILE)" : "";
  return std::string("the file ") + undelivered_file + undelivered_key +
         " cannot be read: " + std::strerror(delivery_error);
}

std::string WithoutSecrets(std::string delivery_words) {
  const std::string delivery_password = m_stmp_auth_password;
  if (delivery_password.empty()) return delivery_words;
  const std::string delivery_user = m_stmp_auth_id;
  HideSecret(EncodedDeliverySecret(std::string(1, '\0') + delivery_user + '\0' + delivery_password),
             &delivery_words);
  HideSecret(EncodedDeliverySecret(delivery_password), &delivery_words);
  HideSecret(delivery_password, &delivery_words);
  return delivery_words;
}

void HideSecret(std::string_view secret, std::string* delivery_words) {
  // Goes on behind the stars: they may hold the secret, too.
  for (size_t at = 0; !secret.empty() && (at = delivery_words->find(secret, at)) != std::string::npos;
       at += DELIVERY_SECRET_STARS.size())
    delivery_words->replace(at, secret.size(), DELIVERY_SECRET_STARS);
}

}  // namespace alarms
