#include "ctl/test_outcome.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <string_view>

#include "Tovik/alarms/webhook.h"
#include "base/number.h"
#include "ctl/render_alarm.h"
#include "ctl/text.h"
#include "smtp/smtp.h"

namespace ctl {
namespace {

constexpr std::string_view RECIPIENT = "RCPT TO:<";
constexpr int ASKED_FOR = 354;  // the answer to DATA
constexpr int MORE = 300;       // codes from here on are no success
constexpr int REFUSED = 400;    // of a mail server, and above
// Words of the agent's senders.
constexpr std::string_view NO_RECIPIENTS = "no recipients";
constexpr std::string_view WAITED = "; waiting at ";
constexpr std::string_view CUT_OFF = "response reading failed";
constexpr std::string_view NO_LOGIN = "Login denied";

constexpr const char* CLOSED = "closed without a reply";

// One command of the mail session with its reply, lines joined. The first one is the connection: no command.
struct Exchange {
  std::string command;
  std::string reply;
  bool answered = false;
};

struct Session {
  std::vector<Exchange> exchanges = {{}};
  std::string content;  // of the mail itself
  std::string failure;
  std::vector<PeerAnswer> left_out;
};

// Commands whose refusal ends a session, and what is refused.
struct Step {
  std::string_view command;
  const char* refused;
};
constexpr Step STEPS[] = {{"", "the connection"}, {"HELO", "the connection"}, {"AUTH", "the login"},
                          {"***", "the login"},   {"MAIL", "the sender"},     {"DATA", "the message"},
                          {".", "the message"}};

int CodeOf(std::string_view reply) {
  return static_cast<int>(base::LeadingNumber(reply.substr(0, 3)));
}

std::string WordsOf(std::string_view reply) {
  return reply.size() > 4 ? Shown(reply.substr(4)) : std::string();
}

void TakeReply(std::string_view line, Exchange* exchange) {
  if (line.empty()) return;  // the end of the connection
  const bool more = exchange->answered && line.size() > 4;
  exchange->reply += more ? " " + WithoutEnd(line.substr(4)) : exchange->answered ? "" : WithoutEnd(line);
  exchange->answered = true;
}

PeerAnswer LeftOut(const std::string& text) {
  const size_t colon = text.rfind(": ");
  return {Shown(text.substr(0, colon)), Outcome::NOT_SENT, 0,
          colon == std::string::npos ? "" : Shown(text.substr(colon + 2))};
}

void TakeCommand(const std::string& text, Session* session) {
  const Exchange& last = session->exchanges.back();
  const bool content = last.command == "DATA" && CodeOf(last.reply) == ASKED_FOR;
  if (content && text != ".\r\n") {
    session->content += text;
  } else {
    session->exchanges.push_back({WithoutEnd(text), "", false});
  }
}

Session SessionOf(const std::vector<Heard>& heard) {
  Session session;
  for (const Heard& one : heard) {
    switch (one.who) {
      case Heard::Who::CLIENT:
        TakeCommand(one.text, &session);
        break;
      case Heard::Who::PEER:
        TakeReply(one.text, &session.exchanges.back());
        break;
      case Heard::Who::FAILURE:
        session.failure = one.text;
        break;
      case Heard::Who::LEFT_OUT:
        session.left_out.push_back(LeftOut(one.text));
        break;
      case Heard::Who::CONNECTED:
        break;
    }
  }
  return session;
}

PeerAnswer AnswerOf(const std::string& address, const Exchange& exchange, int good) {
  PeerAnswer answer{address, Outcome::SILENT, 0, ""};
  if (!exchange.answered) return answer;
  answer.code = CodeOf(exchange.reply);
  answer.text = WordsOf(exchange.reply);
  const bool ok = good != 0 ? answer.code == good : answer.code >= 200 && answer.code < MORE;
  answer.outcome = ok ? Outcome::OK : Outcome::REFUSED;
  return answer;
}

bool Refuses(const Exchange& exchange) {
  return exchange.answered && CodeOf(exchange.reply) >= REFUSED;
}

// What the server would not have, when it said so; recipients aside.
std::optional<PeerAnswer> Refusal(const Session& session) {
  for (const Exchange& exchange : session.exchanges) {
    const std::string verb = exchange.command.substr(0, exchange.command.find(' '));
    for (const Step& step : STEPS) {
      if (verb == step.command && Refuses(exchange)) return AnswerOf(step.refused, exchange, 0);
    }
  }
  return std::nullopt;
}

bool Begun(const Session& session, std::string_view command) {
  return std::any_of(session.exchanges.begin(), session.exchanges.end(),
                     [command](const Exchange& exchange) { return exchange.command.starts_with(command); });
}

// By the sender's own words: the peer may have said nothing.
Outcome FailureOf(const Session& session) {
  static constexpr int OWN[] = {SMTP_NO_MEMORY, SMTP_INVALID, SMTP_FILE_FAILED, SMTP_DATE_FAILED};
  const std::string_view why = session.failure;
  const bool own = why == NO_RECIPIENTS || why == NO_CONVERSION ||
                   std::any_of(std::begin(OWN), std::end(OWN),
                               [why](int status) { return why == smtp_status_code_errstr(status); });
  if (own) return Outcome::NOT_SENT;
  if (why.find(WAITED) != why.npos && !why.starts_with("Connection") && !why.starts_with("Resolving"))
    return Outcome::SILENT;
  return Begun(session, "MAIL") || why.starts_with(CUT_OFF) ? Outcome::REFUSED : Outcome::UNREACHABLE;
}

// A recipient without an answer: the session may have ended before it.
PeerAnswer RecipientAnswer(const Exchange& exchange, bool cut) {
  const std::string address = exchange.command.substr(RECIPIENT.size());
  const std::string shown = Shown(address.substr(0, address.find('>')));
  if (cut && !exchange.answered) return {shown, Outcome::REFUSED, 0, CLOSED};
  return AnswerOf(shown, exchange, 0);
}

// How far a session without an answer to its message came.
PeerAnswer Unfinished(const Session& session, bool ended) {
  if (const auto refusal = Refusal(session)) return *refusal;
  if (!ended) return {"the message", Outcome::SILENT, 0, ""};
  // The server may offer none of the ways to log in.
  if (session.failure.starts_with(NO_LOGIN))
    return {"the login", Outcome::REFUSED, 0, Shown(session.failure)};
  if (!session.failure.empty()) return {"the message", FailureOf(session), 0, Shown(session.failure)};
  return {"the message", Outcome::NOT_SENT, 0, "no word why"};
}

Verdict JudgeSession(const std::vector<Heard>& heard, bool ended) {
  const Session session = SessionOf(heard);
  Verdict verdict;
  verdict.whole = Unfinished(session, ended);
  verdict.recipients = session.left_out;
  const bool cut = ended && verdict.whole.outcome != Outcome::SILENT;
  for (const Exchange& exchange : session.exchanges) {
    if (exchange.command.starts_with(RECIPIENT)) verdict.recipients.push_back(RecipientAnswer(exchange, cut));
    if (exchange.command == "." && exchange.answered) verdict.whole = AnswerOf("the message", exchange, 250);
  }
  for (const Remark& remark : JudgeMail(session.content)) verdict.notes.push_back(remark.text);
  verdict.tried = std::max<size_t>(verdict.recipients.size(), 1);
  if (verdict.whole.outcome == Outcome::OK)
    verdict.taken =
        static_cast<size_t>(std::count_if(verdict.recipients.begin(), verdict.recipients.end(),
                                          [](const PeerAnswer& one) { return one.outcome == Outcome::OK; }));
  return verdict;
}

const Heard* Last(const std::vector<Heard>& heard, Heard::Who who) {
  const auto found =
      std::find_if(heard.rbegin(), heard.rend(), [who](const Heard& one) { return one.who == who; });
  return found == heard.rend() ? nullptr : &*found;
}

Verdict Single(Outcome outcome, int code, const std::string& text) {
  Verdict verdict;
  verdict.whole = {"", outcome, code, text};
  verdict.taken = outcome == Outcome::OK ? 1 : 0;
  return verdict;
}

// A post that came to no answer.
Verdict JudgeFailedPost(const std::string& failure, bool connected) {
  const int64_t code = base::LeadingNumber(failure);
  const Outcome outcome = connected ? code == CURLE_OPERATION_TIMEDOUT ? Outcome::SILENT : Outcome::REFUSED
                          : code == CURLE_UNSUPPORTED_PROTOCOL || code == CURLE_URL_MALFORMAT
                              ? Outcome::NOT_SENT
                              : Outcome::UNREACHABLE;
  return Single(outcome, 0, Shown(failure.substr(failure.find(' ') + 1)));
}

Verdict JudgePost(const std::vector<Heard>& heard, bool ended, const ChatAnswer& chat) {
  const Heard* failure = Last(heard, Heard::Who::FAILURE);
  const Heard* answer = Last(heard, Heard::Who::PEER);
  if (failure != nullptr)
    return JudgeFailedPost(failure->text, Last(heard, Heard::Who::CONNECTED) != nullptr);
  if (!ended) return Single(Outcome::SILENT, 0, "");
  if (answer == nullptr) return Single(Outcome::NOT_SENT, 0, NO_CONVERSION);
  const int code = CodeOf(answer->text);
  const std::string body = answer->text.substr(std::min<size_t>(answer->text.size(), 4));
  // As the agent judges it when it does.
  const bool taken = alarms::PostDenial(code, body, chat.success).empty();
  const bool success = code >= 200 && code < MORE;
  Verdict verdict = Single(taken     ? Outcome::OK
                           : success ? Outcome::DOUBTFUL
                                     : Outcome::REFUSED,
                           code, WordsOf(WithoutEnd(answer->text)));
  if (!taken && !chat.minded) verdict.notes.emplace_back("the agent counts this as delivered");
  return verdict;
}

Verdict JudgeServer(const std::vector<Heard>& heard, bool ended) {
  if (const Heard* failure = Last(heard, Heard::Who::FAILURE); failure != nullptr)
    return Single(Outcome::UNREACHABLE, 0, Shown(failure->text));
  const Heard* answer = Last(heard, Heard::Who::PEER);
  if (!ended && Last(heard, Heard::Who::CONNECTED) == nullptr)
    return Single(Outcome::UNREACHABLE, 0, "no connection");
  if (!ended) {
    Verdict verdict =
        Single(Outcome::SILENT, 0, answer == nullptr ? "no reply to OPEN" : "no reply to the alarm");
    verdict.notes.emplace_back("holds every report to the servers behind it for 60 s");
    return verdict;
  }
  if (answer == nullptr) return Single(Outcome::REFUSED, 0, CLOSED);
  const bool good = answer->text.starts_with("OPEN_OK") || answer->text.starts_with("DATA_RECEIVE_OK");
  return Single(good ? Outcome::OK : Outcome::REFUSED, 0, Shown(answer->text));
}

}  // namespace

std::string WithoutEnd(std::string_view text) {
  return std::string(text.substr(0, text.find_last_not_of("\r\n") + 1));
}

const char* OutcomeName(Outcome outcome) {
  switch (outcome) {
    case Outcome::OK:
      return "ok";
    case Outcome::REFUSED:
      return "REFUSED";
    case Outcome::UNREACHABLE:
      return "UNREACHABLE";
    case Outcome::SILENT:
      return "SILENT";
    case Outcome::DOUBTFUL:
      return "DOUBTFUL";
    case Outcome::NOT_SENT:
      return "NOT SENT";
  }
  return "";
}

std::string OutcomeWord(Outcome outcome) {
  std::string word = OutcomeName(outcome);
  for (char& c : word) c = c == ' ' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return word;
}

const char* ChannelName(Channel channel) {
  switch (channel) {
    case Channel::MAIL:
      return "mail";
    case Channel::CHAT:
      return "chat";
    case Channel::SERVER:
      return "server";
  }
  return "";
}

Verdict JudgeHeard(Channel channel, const std::vector<Heard>& heard, bool ended, const ChatAnswer& chat) {
  switch (channel) {
    case Channel::MAIL:
      return JudgeSession(heard, ended);
    case Channel::CHAT:
      return JudgePost(heard, ended, chat);
    case Channel::SERVER:
      return JudgeServer(heard, ended);
  }
  return {};
}

}  // namespace ctl
