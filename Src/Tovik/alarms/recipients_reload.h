// The timer that reads the recipient files again when they have changed (recipients.h).
//
// It looks once a second and compares the files' times with those of the start. So from the first change on,
// the lists are read again at every look.
#ifndef TOVIK_ALARMS_RECIPIENTS_RELOAD_H
#define TOVIK_ALARMS_RECIPIENTS_RELOAD_H

#include <ctime>
#include <optional>

// One look and the pause of a second. For one thread.
void RecipientsCycle();

// Notes the modification times of the files, 0 for one that is missing. Changes are measured against them.
void KeepRecipientTimes();
// Reads the lists again when one of the files is newer than its noted time. Traces what it found.
void ReloadChangedRecipients();

// Seconds by which a file is newer than it was; 0 when its time is not known.
double RecipientsNewerBy(std::optional<time_t> recipientsTime, time_t notedRecipientsTime);
// A file's modification time, taken through local time and back; none when it cannot be examined.
std::optional<time_t> RecipientFileTime(const char* recipientsPath);

#endif
