// What is told to the administrator (notices/notices.h) of a file of recipients whose mails will not go where
// he believes.
#ifndef TOVIK_ALARMS_RECIPIENT_NOTICES_H
#define TOVIK_ALARMS_RECIPIENT_NOTICES_H

#include <string>
#include <string_view>

namespace alarms {

// Looks at a file that mails go to. Without a journal, and while no mail is sent, it is not looked at.
void TellBadRecipients(const char* path);

// "has 2 lines that cannot be used: line 3: no address; line 5: ..."; empty when all can. byLine: as
// MAIL_SKIP_BAD reads them.
std::string BadLineWords(std::string_view text, bool byLine);

}  // namespace alarms

#endif
