// Judges one test alarm by what was heard of it. Pure.
#ifndef CTL_TEST_OUTCOME_H
#define CTL_TEST_OUTCOME_H

#include <string>
#include <vector>

namespace ctl {

enum class Outcome { OK, REFUSED, UNREACHABLE, SILENT, DOUBTFUL, NOT_SENT };
// The outcome for people: "ok", "REFUSED", "NOT SENT".
const char* OutcomeName(Outcome outcome);
// The same for programs: lower case, "-" for a blank.
std::string OutcomeWord(Outcome outcome);

enum class Channel { MAIL, CHAT, SERVER };
const char* ChannelName(Channel channel);

// One thing that was heard, without secrets.
struct Heard {
  enum class Who : char {
    CLIENT = 'C',   // what we sent
    PEER = 'S',     // a line or a body from the peer; a chat's body follows its status: "200 ok"
    FAILURE = 'E',  // our own failure or the network's, in words
    CONNECTED = 'K'
  };
  Who who;
  std::string text;
};

struct PeerAnswer {
  std::string address;  // a recipient's address, "the message", or empty
  Outcome outcome = Outcome::NOT_SENT;
  int code = 0;  // 0: none
  std::string text;
};

struct Verdict {
  PeerAnswer whole;
  std::vector<PeerAnswer> recipients;  // only of a mail
  std::vector<std::string> notes;
  size_t tried = 1;
  size_t taken = 0;
};

// ended: the sender finished within its time. form: the post is a form, not a card.
Verdict JudgeHeard(Channel channel, const std::vector<Heard>& heard, bool ended, bool form);

}  // namespace ctl

#endif
