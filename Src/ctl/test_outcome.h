// Judges one test alarm by what was heard of it. Pure.
#ifndef CTL_TEST_OUTCOME_H
#define CTL_TEST_OUTCOME_H

#include <string>
#include <string_view>
#include <vector>

namespace ctl {

enum class Outcome { OK, REFUSED, UNREACHABLE, SILENT, DOUBTFUL, NOT_SENT };
// The outcome for people: "ok", "REFUSED", "NOT SENT".
const char* OutcomeName(Outcome outcome);
// The same for programs: lower case, "-" for a blank.
std::string OutcomeWord(Outcome outcome);

// Why nothing left, in words of this tool.
inline constexpr const char* NO_CONVERSION = "a text does not convert to UTF-8";

enum class Channel { MAIL, CHAT, SERVER };
const char* ChannelName(Channel channel);

// One thing that was heard, without secrets.
struct Heard {
  enum class Who : char {
    CLIENT = 'C',    // what we sent
    PEER = 'S',      // a line or a body from the other side; of the chat behind its status: "200 ok"
    FAILURE = 'E',   // the sender's last words; of a post behind libcurl's code: "28 Timeout was reached"
    LEFT_OUT = 'L',  // a recipient whom the sender gives to no server: "ADDRESS: why"
    CONNECTED = 'K'
  };
  Who who;
  std::string text;
};

// A line without what ends it.
std::string WithoutEnd(std::string_view text);

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

// What a chat of this kind answers when it takes a post (empty: anything), and whether the agent minds.
struct ChatAnswer {
  std::string_view success;
  bool minded = false;
};

// ended: the sender came to its end within the time given.
Verdict JudgeHeard(Channel channel, const std::vector<Heard>& heard, bool ended, const ChatAnswer& chat);

}  // namespace ctl

#endif
