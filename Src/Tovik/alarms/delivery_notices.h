// What mail and webhook tell the administrator (notices/notices.h) of alarms that did not get to everybody.
// Without a journal nothing here does anything.
#ifndef TOVIK_ALARMS_DELIVERY_NOTICES_H
#define TOVIK_ALARMS_DELIVERY_NOTICES_H

#include <string>
#include <string_view>

#include "Tovik/alarms/alarm.h"
#include "Tovik/alarms/alarm_mail_refusals.h"

namespace alarms {

// A mail is over. failure: why it was lost, without the server's words; empty when the server took it.
void TellMail(const Alarm& alarm, const std::string& failure, const MailRefusals& refusals);
// A mail was lost before a server was asked.
void TellMailLost(const Alarm& alarm, const std::string& why);
// A mail went out without its file.
void TellMailWithoutFile(const char* undelivered_file, int delivery_error);
// A post was lost. The path of the address is not shown.
void TellPostLost(const Alarm& alarm, const std::string& why);

// "the file /x (CFG_FILE) cannot be read: Permission denied".
std::string UnreadFileWords(const char* undelivered_file, int delivery_error);
// A text without the password of the mail server and what AUTH sends, as "***".
std::string WithoutSecrets(std::string delivery_words);
// Puts "***" in the place of a secret, wherever a text holds it. An empty secret hides nothing.
void HideSecret(std::string_view secret, std::string* delivery_words);

}  // namespace alarms

#endif
