// The timer that reads the recipient files again when they have changed (alarms/recipients.h).
#ifndef TOVIK_CHECKS_RECIPIENTS_CHECK_H
#define TOVIK_CHECKS_RECIPIENTS_CHECK_H

// One look and the pause of a second.
void RecipientsCycle();

#endif
