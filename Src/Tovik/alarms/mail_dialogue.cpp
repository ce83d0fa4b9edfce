#include "Tovik/alarms/mail_dialogue.h"

#include "base/number.h"
#include "charset/repair.h"

namespace alarms {
namespace {

constexpr size_t SHOWN = 300;
constexpr size_t COLLECTED = 1000;  // of a reply of many lines
constexpr std::string_view RECIPIENT = "RCPT TO:";
constexpr std::string_view MESSAGE = "the message";
constexpr int REFUSED = 400;  // and above
constexpr int CONTENT = 354;
constexpr int LOGIN_GOES_ON = 334;

}  // namespace

std::string MailDialogue::Sent(std::string_view command) {
  if (secret_) return "***";
  recipient_.clear();
  step_ = charset::OneLine(command.substr(0, command.find(' ')), SHOWN);
  if (command.starts_with(RECIPIENT)) {
    const std::string_view rest = command.substr(RECIPIENT.size());
    recipient_ = charset::OneLine(rest.substr(0, rest.find('>') + 1), SHOWN);
    step_ = "RCPT " + recipient_;
  }
  secret_ = step_ == "AUTH";
  return secret_ ? "AUTH ***" : charset::OneLine(command, SHOWN);
}

std::string MailDialogue::Received(std::string_view line) {
  const bool more = line.size() > 3 && line[3] == '-';
  const std::string_view code = line.substr(0, 3);
  if (words_.empty()) words_ = code;
  if (words_.size() < COLLECTED && line.size() > 4) {
    words_ += ' ';
    words_ += line.substr(4, line.find_last_not_of("\r\n") - 3);
  }
  if (!more) Conclude(static_cast<int>(base::LeadingNumber(code)));
  return charset::OneLine(line, SHOWN);
}

bool MailDialogue::InContent() const {
  return step_ == MESSAGE;
}

void MailDialogue::Conclude(int code) {
  const std::string words = charset::OneLine(words_, SHOWN);
  words_.clear();
  secret_ = secret_ && code == LOGIN_GOES_ON;
  if (step_ == "QUIT") return;
  if (code >= REFUSED && !recipient_.empty()) {
    refused_.push_back(recipient_ + ": " + words);
  } else if (code >= REFUSED) {
    refusal_ = step_ + ": " + words;
  } else {
    refusal_.clear();
    accepted_ = accepted_ || step_ == MESSAGE;
  }
  if (code == CONTENT) step_ = MESSAGE;
}

}  // namespace alarms
