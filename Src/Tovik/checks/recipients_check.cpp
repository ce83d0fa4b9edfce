#include "Tovik/checks/recipients_check.h"

#include <sys/stat.h>

#include "Tovik/alarms/recipients.h"
#include "Tovik/config/config.h"
#include "Tovik/trace.h"
#include "base/stoppable_wait.h"

namespace {

// Modification times of the three files when they were kept; 0 when missing.
time_t m_Receivertime;
time_t m_Referencetime;
time_t m_Blindtime;

}  // namespace

void RecipientsCycle() {
  ReloadChangedRecipients();
  // The period in this line is the error log's, as operators know it.
  TRACE(TRACE_INFO, "send_timer EmailCheck Time [ %d ]", static_cast<int>(m_errorlog_period));
  base::SleepSeconds(1);
}

void KeepRecipientTimes() {
  m_Receivertime = ModificationTime(m_receiver_email).value_or(0);
  m_Referencetime = ModificationTime(m_reference_email).value_or(0);
  m_Blindtime = ModificationTime(m_blind_email).value_or(0);
  TRACE(TRACE_DEBUG, "Receiver [ %d ] Reference [ %d ] Blind [ %d ]", static_cast<int>(m_Receivertime),
        static_cast<int>(m_Referencetime), static_cast<int>(m_Blindtime));
}

void ReloadChangedRecipients() {
  const double receiver = NewerBy(ModificationTime(m_receiver_email), m_Receivertime);
  const double reference = NewerBy(ModificationTime(m_reference_email), m_Referencetime);
  const double blind = NewerBy(ModificationTime(m_blind_email), m_Blindtime);
  if (receiver <= 0 && reference <= 0 && blind <= 0) {
    TRACE(TRACE_WARN, "Diff Over");
    return;
  }
  TRACE(TRACE_INFO, "ReceiverDiff [ %lf ] ReferenceDiff [ %lf ] BlindDiff [ %lf ]", receiver, reference,
        blind);
  EMailListFree(*gEmailLists.Get());
  static_cast<void>(LoadRecipients());  // without memory the lists stay
}

double NewerBy(std::optional<time_t> now, time_t before) {
  return now ? std::difftime(*now, before) : 0.0;
}

std::optional<time_t> ModificationTime(const char* path) {
  struct stat status {};
  if (::stat(path, &status) != 0) return std::nullopt;
  std::tm local{};
  localtime_r(&status.st_mtime, &local);
  return std::mktime(&local);
}
