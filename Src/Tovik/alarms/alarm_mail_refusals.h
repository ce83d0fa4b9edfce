// What a mail server said to each step of a delivery, be it libcurl or the own mail client that carries it
// out.
#ifndef TOVIK_ALARMS_ALARM_MAIL_REFUSALS_H
#define TOVIK_ALARMS_ALARM_MAIL_REFUSALS_H

#include <string>
#include <string_view>
#include <vector>

namespace alarms {

// Does no input or output: the caller passes the lines.
class MailRefusals {
 public:
  // Takes a command that was sent, or a line of a reply. Returns the text to show of it: one line, at most
  // 300 bytes, without credentials.
  std::string Sent(std::string_view refusable_command);
  std::string Received(std::string_view mail_reply_line);

  // "<lee@example.com>: 550 5.1.1 User unknown", in their order.
  const std::vector<std::string>& RefusedRecipients() const { return refused_recipients_; }
  // Whether the server took the message.
  bool Accepted() const { return accepted_; }
  // The last refusal of anything else, "AUTH: 535 wrong password"; empty when a later step went well.
  const std::string& Refusal() const { return refusal_; }
  // The step under way: "the greeting", "EHLO", "RCPT <lee@example.com>", "the message".
  const std::string& Step() const { return refusable_step_; }
  // Whether that is the message, whose lines are no commands.
  bool InContent() const;

 private:
  void ConcludeRefusableStep(int mail_reply_code);

  std::string refusable_step_ = "the greeting";  // the step under way
  std::string refusable_recipient_;              // of a RCPT
  std::string refusal_words_;                    // of the reply so far
  bool login_secret_ = false;                    // within AUTH
  bool accepted_ = false;
  std::string refusal_;
  std::vector<std::string> refused_recipients_;
};

// Lets the dialogues of the own mail client be heard where there is a journal to tell them to. Once, before
// the first thread.
void HearMailServers();

// While it lives, what the own mail client exchanges on this thread is followed.
class MailRefusalHearing {
 public:
  MailRefusalHearing();
  ~MailRefusalHearing();
  MailRefusalHearing(const MailRefusalHearing&) = delete;
  MailRefusalHearing& operator=(const MailRefusalHearing&) = delete;
  const MailRefusals& Refusals() const { return heard_refusals_; }

 private:
  MailRefusals heard_refusals_;
};

}  // namespace alarms

#endif
