#include "ctl/test_outcome.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "base/number.h"
#include "ctl/render_alarm.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr std::string_view RECIPIENT = "RCPT TO:<";
constexpr int ASKED_FOR = 354;  // the answer to DATA
constexpr int MORE = 300;       // codes from here on are not a success

// One command of the mail session, with the last line of the reply to it.
struct Exchange {
  std::string command;
  std::string reply;
  bool answered = false;
};

struct Session {
  std::vector<Exchange> exchanges;
  std::string content;  // the mail itself
  std::string failure;
  bool greeted = false;
};

std::string WithoutEnd(std::string_view text) {
  return std::string(text.substr(0, text.find_last_not_of("\r\n") + 1));
}

int CodeOf(std::string_view reply) {
  return static_cast<int>(base::LeadingNumber(reply.substr(0, 3)));
}

std::string WordsOf(std::string_view reply) {
  return reply.size() > 4 ? Shown(reply.substr(4)) : std::string();
}

Session SessionOf(const std::vector<Heard>& heard) {
  Session session;
  bool content = false;
  for (const Heard& one : heard) {
    if (one.who == Heard::Who::FAILURE) {
      session.failure = one.text;
    } else if (one.who == Heard::Who::PEER && session.exchanges.empty()) {
      session.greeted = true;
    } else if (one.who == Heard::Who::PEER) {
      session.exchanges.back().reply = one.text;
      session.exchanges.back().answered = true;
      content = session.exchanges.back().command == "DATA" && CodeOf(one.text) == ASKED_FOR;
    } else if (one.who == Heard::Who::CLIENT && content && one.text != ".\r\n") {
      session.content += one.text;
    } else if (one.who == Heard::Who::CLIENT) {
      session.exchanges.push_back({WithoutEnd(one.text), "", false});
      content = false;
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

// The outcome of a session that got no answer to its message.
PeerAnswer Unfinished(const Session& session, bool ended) {
  if (!session.failure.empty()) return {"the message", Outcome::NOT_SENT, 0, session.failure};
  if (!session.greeted && session.exchanges.empty() && ended)
    return {"the message", Outcome::UNREACHABLE, 0, "no connection, or no greeting"};
  if (!ended) return {"the message", Outcome::SILENT, 0, ""};
  for (const Exchange& exchange : session.exchanges) {
    const bool login = exchange.command.starts_with("AUTH") || exchange.command == "***";
    if (exchange.answered && CodeOf(exchange.reply) >= 400 && (login || exchange.command == "DATA"))
      return AnswerOf(login ? "the login" : "the message", exchange, 0);
  }
  return {"the message", Outcome::NOT_SENT, 0, "a recipient, the sender or the login cannot be used"};
}

Verdict JudgeSession(const std::vector<Heard>& heard, bool ended) {
  const Session session = SessionOf(heard);
  Verdict verdict;
  verdict.whole = Unfinished(session, ended);
  for (const Exchange& exchange : session.exchanges) {
    if (exchange.command.starts_with(RECIPIENT)) {
      const std::string address = exchange.command.substr(RECIPIENT.size());
      verdict.recipients.push_back(AnswerOf(Shown(address.substr(0, address.find('>'))), exchange, 0));
    }
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

Verdict JudgePost(const std::vector<Heard>& heard, bool ended, bool form) {
  if (const Heard* failure = Last(heard, Heard::Who::FAILURE); failure != nullptr)
    return Single(Outcome::UNREACHABLE, 0, Shown(failure->text));
  const Heard* answer = Last(heard, Heard::Who::PEER);
  if (!ended) return Single(Outcome::SILENT, 0, "");
  if (answer == nullptr) return Single(Outcome::NOT_SENT, 0, "the text does not convert");
  const int code = CodeOf(answer->text);
  const std::string body = WordsOf(answer->text);
  if (code < 200 || code >= MORE) {
    Verdict verdict = Single(Outcome::REFUSED, code, body);
    verdict.notes.emplace_back("the agent counts this as delivered");
    return verdict;
  }
  if (body == (form ? "ok" : "1")) return Single(Outcome::OK, code, body);
  return Single(Outcome::DOUBTFUL, code, body);
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
  if (answer == nullptr) return Single(Outcome::REFUSED, 0, "closed without a reply");
  const bool good = answer->text.starts_with("OPEN_OK") || answer->text.starts_with("DATA_RECEIVE_OK");
  return Single(good ? Outcome::OK : Outcome::REFUSED, 0, Shown(answer->text));
}

}  // namespace

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

Verdict JudgeHeard(Channel channel, const std::vector<Heard>& heard, bool ended, bool form) {
  switch (channel) {
    case Channel::MAIL:
      return JudgeSession(heard, ended);
    case Channel::CHAT:
      return JudgePost(heard, ended, form);
    case Channel::SERVER:
      return JudgeServer(heard, ended);
  }
  return {};
}

}  // namespace ctl
