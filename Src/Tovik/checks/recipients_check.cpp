#include "Tovik/checks/recipients_check.h"

#include "Tovik/alarms/recipients.h"
#include "Tovik/config/config.h"
#include "Tovik/trace.h"
#include "base/stop.h"

void RecipientsCycle() {
  ReloadChangedRecipients();
  // The period in this line is the error log's, as operators know it.
  TRACE(TRACE_INFO, "send_timer EmailCheck Time [ %d ]", static_cast<int>(m_errorlog_period));
  base::SleepSeconds(1);
}
