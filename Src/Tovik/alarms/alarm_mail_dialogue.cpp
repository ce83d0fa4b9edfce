#include "Tovik/alarms/alarm_mail_dialogue.h"

#include <new>

#include "Tovik/notices/notices.h"
#include "base/number.h"
#include "charset/utf8_text.h"
#include "smtp/smtp.h"

namespace alarms {
namespace {

constexpr size_t LINE_SHOWN = 300;
constexpr size_t REPLY_COLLECTED = 1000;  // of a reply of many lines
constexpr std::string_view RECIPIENT = "RCPT TO:";
constexpr std::string_view MESSAGE = "the message";
constexpr int REFUSED_FROM = 400;
constexpr int CONTENT_ASKED = 354;
constexpr int LOGIN_GOES_ON = 334;

thread_local MailDialogue* heard = nullptr;

// The content of a mail is no command: it ends with the reply behind it.
void Hear(const char* who, std::string_view text) try {
  if (heard == nullptr) return;
  if (*who == 'S') {
    heard->Received(text);
  } else if (!heard->InContent()) {
    heard->Sent(text);
  }
} catch (const std::bad_alloc&) {
  // A word less to tell.
}

}  // namespace

std::string MailDialogue::Sent(std::string_view command) {
  if (secret_) return "***";
  recipient_.clear();
  step_ = charset::OneLine(command.substr(0, command.find(' ')), LINE_SHOWN);
  if (command.starts_with(RECIPIENT)) {
    const std::string_view rest = command.substr(RECIPIENT.size());
    recipient_ = charset::OneLine(rest.substr(0, rest.find('>') + 1), LINE_SHOWN);
    step_ = "RCPT " + recipient_;
  }
  secret_ = step_ == "AUTH";
  return secret_ ? "AUTH ***" : charset::OneLine(command, LINE_SHOWN);
}

std::string MailDialogue::Received(std::string_view line) {
  const bool more = line.size() > 3 && line[3] == '-';
  const std::string_view code = line.substr(0, 3);
  if (words_.empty()) words_ = code;
  if (words_.size() < REPLY_COLLECTED && line.size() > 4) {
    words_ += ' ';
    words_ += line.substr(4, line.find_last_not_of("\r\n") - 3);
  }
  if (!more) Conclude(static_cast<int>(base::LeadingNumber(code)));
  return charset::OneLine(line, LINE_SHOWN);
}

bool MailDialogue::InContent() const {
  return step_ == MESSAGE;
}

void MailDialogue::Conclude(int code) {
  const std::string words = charset::OneLine(words_, LINE_SHOWN);
  words_.clear();
  secret_ = secret_ && code == LOGIN_GOES_ON;
  if (step_ == "QUIT") return;
  if (code >= REFUSED_FROM && !recipient_.empty()) {
    refused_.push_back(recipient_ + ": " + words);
  } else if (code >= REFUSED_FROM) {
    refusal_ = step_ + ": " + words;
  } else {
    refusal_.clear();
    accepted_ = accepted_ || step_ == MESSAGE;
  }
  if (code == CONTENT_ASKED) step_ = MESSAGE;
}

void HearMailServers() {
  if (notices::On()) smtp_overhear = Hear;
}

MailHearing::MailHearing() {
  if (notices::On()) heard = &dialogue_;
}

MailHearing::~MailHearing() {
  heard = nullptr;
}

}  // namespace alarms
