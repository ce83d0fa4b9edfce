#include "Tovik/alarms/alarm_mail_refusals.h"

#include <new>

#include "Tovik/notices/notices.h"
#include "base/number.h"
#include "charset/utf8_repair.h"
#include "smtp/smtp.h"

namespace alarms {
namespace {

constexpr size_t DIALOGUE_LINE_SHOWN = 300;
constexpr size_t DIALOGUE_REPLY_COLLECTED = 1000;  // of a reply of many lines
constexpr std::string_view RCPT_COMMAND = "RCPT TO:";
constexpr std::string_view MESSAGE_STEP = "the message";
constexpr int REFUSING_REPLY = 400;
constexpr int CONTENT_ASKING_REPLY = 354;
constexpr int LOGIN_GOING_ON_REPLY = 334;

thread_local MailDialogue* heardDialogue = nullptr;

// The content of a mail is no command: it ends with the reply behind it.
void HearDialogue(const char* who, std::string_view text) try {
  if (heardDialogue == nullptr) return;
  if (*who == 'S') {
    heardDialogue->Received(text);
  } else if (!heardDialogue->InContent()) {
    heardDialogue->Sent(text);
  }
} catch (const std::bad_alloc&) {
  // A word less to tell.
}

}  // namespace

std::string MailDialogue::Sent(std::string_view command) {
  if (login_secret_) return "***";
  step_recipient_.clear();
  step_ = charset::OneLine(command.substr(0, command.find(' ')), DIALOGUE_LINE_SHOWN);
  if (command.starts_with(RCPT_COMMAND)) {
    const std::string_view rcpt_address = command.substr(RCPT_COMMAND.size());
    step_recipient_ =
        charset::OneLine(rcpt_address.substr(0, rcpt_address.find('>') + 1), DIALOGUE_LINE_SHOWN);
    step_ = "RCPT " + step_recipient_;
  }
  login_secret_ = step_ == "AUTH";
  return login_secret_ ? "AUTH ***" : charset::OneLine(command, DIALOGUE_LINE_SHOWN);
}

std::string MailDialogue::Received(std::string_view reply_line) {
  const bool more_reply_lines = reply_line.size() > 3 && reply_line[3] == '-';
  const std::string_view reply_code = reply_line.substr(0, 3);
  if (reply_words_.empty()) reply_words_ = reply_code;
  if (reply_words_.size() < DIALOGUE_REPLY_COLLECTED && reply_line.size() > 4) {
    reply_words_ += ' ';
    reply_words_ += reply_line.substr(4, reply_line.find_last_not_of("\r\n") - 3);
  }
  if (!more_reply_lines) ConcludeStep(static_cast<int>(base::LeadingNumber(reply_code)));
  return charset::OneLine(reply_line, DIALOGUE_LINE_SHOWN);
}

bool MailDialogue::InContent() const {
  return step_ == MESSAGE_STEP;
}

void MailDialogue::ConcludeStep(int reply_code) {
  const std::string step_words = charset::OneLine(reply_words_, DIALOGUE_LINE_SHOWN);
  reply_words_.clear();
  login_secret_ = login_secret_ && reply_code == LOGIN_GOING_ON_REPLY;
  if (step_ == "QUIT") return;
  if (reply_code >= REFUSING_REPLY && !step_recipient_.empty()) {
    refused_recipients_.push_back(step_recipient_ + ": " + step_words);
  } else if (reply_code >= REFUSING_REPLY) {
    refusal_ = step_ + ": " + step_words;
  } else {
    refusal_.clear();
    accepted_ = accepted_ || step_ == MESSAGE_STEP;
  }
  if (reply_code == CONTENT_ASKING_REPLY) step_ = MESSAGE_STEP;
}

void HearMailServers() {
  if (notices::On()) smtp_overhear = HearDialogue;
}

MailHearing::MailHearing() {
  if (notices::On()) heardDialogue = &dialogue_;
}

MailHearing::~MailHearing() {
  heardDialogue = nullptr;
}

}  // namespace alarms
