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
  const double receiverDiff = NewerBy(RecipientFileTime(m_receiver_email), m_Receivertime);
  const double referenceDiff = NewerBy(RecipientFileTime(m_reference_email), m_Referencetime);
  const double blindDiff = NewerBy(RecipientFileTime(m_blind_email), m_Blindtime);
  if (receiverDiff <= 0 && referenceDiff <= 0 && blindDiff <= 0) {
    TRACE(TRACE_WARN, "Diff Over");
    return;
  }
  TRACE(TRACE_INFO, "ReceiverDiff [ %lf ] ReferenceDiff [ %lf ] BlindDiff [ %lf ]", receiverDiff,
        referenceDiff, blindDiff);
  EMailListFree(*gEmailLists.Get());
  static_cast<void>(LoadRecipients());  // without memory the lists stay
}

double NewerBy(std::optional<time_t> fileTime, time_t notedTime) {
  return fileTime ? std::difftime(*fileTime, notedTime) : 0.0;
}

std::optional<time_t> RecipientFileTime(const char* path) {
  struct stat fileStatus {};
  if (::stat(path, &fileStatus) != 0) return std::nullopt;
  std::tm local{};
  localtime_r(&fileStatus.st_mtime, &local);
  return std::mktime(&local);
}
