#include "Tovik/alarms/alarm_mail_refusals.h"

#include <new>

#include "Tovik/notices/notices.h"
#include "base/number.h"
#include "charset/utf8_repair.h"
#include "smtp/smtp.h"

namespace alarms {
namespace {

constexpr size_t REFUSAL_LINE_SHOWN = 300;
constexpr size_t REFUSAL_WORDS_COLLECTED = 1000;  // of a reply of many lines
constexpr std::string_view REFUSABLE_RCPT = "RCPT TO:";
constexpr std::string_view REFUSABLE_MESSAGE = "the message";
constexpr int REFUSING_REPLY = 400;
constexpr int CONTENT_ASKING_REPLY = 354;
constexpr int LOGIN_GOING_ON_REPLY = 334;

thread_local MailRefusals* heardRefusals = nullptr;

// The content of a mail is no command: it ends with the reply behind it.
void HearRefusals(const char* who, std::string_view dialogue_line) try {
  if (heardRefusals == nullptr) return;
  if (*who == 'S') {
    heardRefusals->Received(dialogue_line);
  } else if (!heardRefusals->InContent()) {
    heardRefusals->Sent(dialogue_line);
  }
} catch (const std::bad_alloc&) {
  // A word less to tell.
}

}  // namespace

std::string MailRefusals::Sent(std::string_view refusable_command) {
  if (login_secret_) return "***";
  refusable_recipient_.clear();
  refusable_step_ =
      charset::OneLine(refusable_command.substr(0, refusable_command.find(' ')), REFUSAL_LINE_SHOWN);
  if (refusable_command.starts_with(REFUSABLE_RCPT)) {
    const std::string_view rcpt_address = refusable_command.substr(REFUSABLE_RCPT.size());
    refusable_recipient_ =
        charset::OneLine(rcpt_address.substr(0, rcpt_address.find('>') + 1), REFUSAL_LINE_SHOWN);
    refusable_step_ = "RCPT " + refusable_recipient_;
  }
  login_secret_ = refusable_step_ == "AUTH";
  return login_secret_ ? "AUTH ***" : charset::OneLine(refusable_command, REFUSAL_LINE_SHOWN);
}

std::string MailRefusals::Received(std::string_view mail_reply_line) {
  const bool more_mail_reply = mail_reply_line.size() > 3 && mail_reply_line[3] == '-';
  const std::string_view mail_reply_code = mail_reply_line.substr(0, 3);
  if (refusal_words_.empty()) refusal_words_ = mail_reply_code;
  if (refusal_words_.size() < REFUSAL_WORDS_COLLECTED && mail_reply_line.size() > 4) {
    refusal_words_ += ' ';
    refusal_words_ += mail_reply_line.substr(4, mail_reply_line.find_last_not_of("\r\n") - 3);
  }
  if (!more_mail_reply) ConcludeRefusableStep(static_cast<int>(base::LeadingNumber(mail_reply_code)));
  return charset::OneLine(mail_reply_line, REFUSAL_LINE_SHOWN);
}

bool MailRefusals::InContent() const {
  return refusable_step_ == REFUSABLE_MESSAGE;
}

void MailRefusals::ConcludeRefusableStep(int mail_reply_code) {
  const std::string refusal_shown = charset::OneLine(refusal_words_, REFUSAL_LINE_SHOWN);
  refusal_words_.clear();
  login_secret_ = login_secret_ && mail_reply_code == LOGIN_GOING_ON_REPLY;
  if (refusable_step_ == "QUIT") return;
  if (mail_reply_code >= REFUSING_REPLY && !refusable_recipient_.empty()) {
    refused_recipients_.push_back(refusable_recipient_ + ": " + refusal_shown);
  } else if (mail_reply_code >= REFUSING_REPLY) {
    refusal_ = refusable_step_ + ": " + refusal_shown;
  } else {
    refusal_.clear();
    accepted_ = accepted_ || refusable_step_ == REFUSABLE_MESSAGE;
  }
  if (mail_reply_code == CONTENT_ASKING_REPLY) refusable_step_ = REFUSABLE_MESSAGE;
}

void HearMailServers() {
  if (notices::On()) smtp_overhear = HearRefusals;
}

MailRefusalHearing::MailRefusalHearing() {
  if (notices::On()) heardRefusals = &heard_refusals_;
}

MailRefusalHearing::~MailRefusalHearing() {
  heardRefusals = nullptr;
}

}  // namespace alarms
