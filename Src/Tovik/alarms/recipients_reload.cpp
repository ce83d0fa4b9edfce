#include "Tovik/alarms/recipients_reload.h"

#include <sys/stat.h>

#include <cstdint>

#include "Tovik/alarms/recipients.h"
#include "Tovik/config/config.h"
#include "Tovik/trace.h"
#include "base/stoppable_wait.h"

namespace {

constexpr int64_t RECIPIENTS_LOOK_PAUSE = 1;  // seconds

// Modification times of the three files when they were kept; 0 when missing.
time_t m_Receivertime;
time_t m_Referencetime;
time_t m_Blindtime;

}  // namespace

void RecipientsCycle() {
  ReloadChangedRecipients();
  // The period in this line is the error log's, as operators know it.
  TRACE(TRACE_INFO, "send_timer EmailCheck Time [ %d ]", static_cast<int>(m_errorlog_period));
  base::SleepSeconds(RECIPIENTS_LOOK_PAUSE);
}

void KeepRecipientTimes() {
  m_Receivertime = RecipientFileTime(m_receiver_email).value_or(0);
  m_Referencetime = RecipientFileTime(m_reference_email).value_or(0);
  m_Blindtime = RecipientFileTime(m_blind_email).value_or(0);
  TRACE(TRACE_DEBUG, "Receiver [ %d ] Reference [ %d ] Blind [ %d ]", static_cast<int>(m_Receivertime),
        static_cast<int>(m_Referencetime), static_cast<int>(m_Blindtime));
}

void ReloadChangedRecipients() {
  const double receiverDiff = RecipientsNewerBy(RecipientFileTime(m_receiver_email), m_Receivertime);
  const double referenceDiff = RecipientsNewerBy(RecipientFileTime(m_reference_email), m_Referencetime);
  const double blindDiff = RecipientsNewerBy(RecipientFileTime(m_blind_email), m_Blindtime);
  if (receiverDiff <= 0 && referenceDiff <= 0 && blindDiff <= 0) {
    TRACE(TRACE_WARN, "Diff Over");
    return;
  }
  TRACE(TRACE_INFO, "ReceiverDiff [ %lf ] ReferenceDiff [ %lf ] BlindDiff [ %lf ]", receiverDiff,
        referenceDiff, blindDiff);
  EMailListFree(*gEmailLists.Get());
  static_cast<void>(LoadRecipients());  // without memory the lists stay
}

double RecipientsNewerBy(std::optional<time_t> recipientsTime, time_t notedRecipientsTime) {
  return recipientsTime ? std::difftime(*recipientsTime, notedRecipientsTime) : 0.0;
}

std::optional<time_t> RecipientFileTime(const char* recipientsPath) {
  struct stat recipientsStatus {};
  if (::stat(recipientsPath, &recipientsStatus) != 0) return std::nullopt;
  std::tm recipientsChange{};
  localtime_r(&recipientsStatus.st_mtime, &recipientsChange);
  return std::mktime(&recipientsChange);
}
