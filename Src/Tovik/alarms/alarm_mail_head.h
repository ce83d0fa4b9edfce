// The header lines of a mail that goes out by MAIL_URL (RFC 5322, 2047, 2231). Texts must be well-formed
// UTF-8 without control characters. The results are ASCII, without the last line end, folded to lines of 76
// bytes; only a long address makes a longer line.
#ifndef TOVIK_ALARMS_ALARM_MAIL_HEAD_H
#define TOVIK_ALARMS_ALARM_MAIL_HEAD_H

#include <ctime>
#include <string>
#include <vector>

namespace alarms {

struct Mailbox {
  std::string name;     // may be empty
  std::string address;  // passes RecipientFault
};

// "Subject: ..." and the like: plain, or in encoded words when the text is not ASCII or a word is too long.
std::string MailHeadText(const std::string& head_key, const std::string& head_text);
// "To: ...", a mailbox a line.
std::string MailHeadAddresses(const std::string& head_key, const std::vector<Mailbox>& head_mailboxes);
// "Date: Mon, 09 Mar 2026 07:05:01 +0530": local time and its true offset.
std::string MailHeadDate(time_t now);
// "Message-ID: <...>" from random bytes, in the domain of the sender's address.
std::string MailHeadId(const std::string& sender);
// "Content-Disposition: attachment; ..." for a file name of at most 200 bytes.
std::string MailHeadDisposition(const std::string& head_file_name);

}  // namespace alarms

#endif
