// The timer that looks for changed recipient files (alarms/recipients.h).
#ifndef TOVIK_CHECKS_RECIPIENTS_CHECK_H
#define TOVIK_CHECKS_RECIPIENTS_CHECK_H

// One look and the pause of a second.
void RecipientsCycle();

#endif
