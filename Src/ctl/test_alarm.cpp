// dunrasttctl test-alarm: sends a marked alarm on every channel of the agent and shows each peer's own words.
#include <sys/stat.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Tovik/alarms/recipients.h"
#include "Tovik/alarms/webhook_body.h"
#include "Tovik/config/config.h"
#include "Tovik/config/url.h"
#include "base/format.h"
#include "ctl/agent_config.h"
#include "ctl/command.h"
#include "ctl/near_name.h"
#include "ctl/output.h"
#include "ctl/process_table.h"
#include "ctl/render_alarm.h"
#include "ctl/run_as.h"
#include "ctl/running_agent.h"
#include "ctl/test_outcome.h"
#include "ctl/test_sender.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr int64_t DEFAULT_TIMEOUT = 20;  // seconds
constexpr int64_t LONGEST_TIMEOUT = 3600;
constexpr std::string_view WAYS[] = {"mail", "chat", "servers"};

struct Wish {
  bool mail = false;
  bool chat = false;
  bool servers = false;
  bool start_alarm = false;
  int64_t timeout = DEFAULT_TIMEOUT;
};

// Parses "mail,chat"; false when a word is no channel.
bool TakeWays(std::string_view text, Wish* wish, std::string* complaint) {
  while (!text.empty()) {
    const std::string_view word = text.substr(0, text.find(','));
    text.remove_prefix(std::min(word.size() + 1, text.size()));
    bool* const ways[] = {&wish->mail, &wish->chat, &wish->servers};
    const auto* found = std::find(std::begin(WAYS), std::end(WAYS), word);
    if (found == std::end(WAYS)) {
      *complaint = "no way " + Shown(word) + NearNameHint(word, WAYS);
      return false;
    }
    *ways[found - std::begin(WAYS)] = true;
  }
  return true;
}

// What the call asks for. Without --to, the channels that the agent uses.
std::optional<Wish> WishOf(const Call& call, std::string* complaint) {
  Wish wish;
  if (!call.operands.empty()) *complaint = "test-alarm takes no word " + Shown(call.operands[0]);
  if (const std::string* servers = call.Value("servers"); servers != nullptr) {
    wish.start_alarm = *servers == "start";
    if (!wish.start_alarm && *servers != "open") *complaint = "--servers takes open or start";
  }
  if (const std::string* seconds = call.Value("timeout"); seconds != nullptr) {
    wish.timeout = OptionValue(*seconds, LONGEST_TIMEOUT).value_or(0);
    if (wish.timeout == 0) *complaint = "--timeout takes seconds, 1 to 3600";
  }
  const std::string* ways = call.Value("to");
  if (complaint->empty() && ways != nullptr) TakeWays(*ways, &wish, complaint);
  if (ways == nullptr) {
    wish.mail = m_send_email_used != 0;
    wish.chat = m_send_webhook_used != 0;
    wish.servers = true;
  }
  return complaint->empty() ? std::optional(wish) : std::nullopt;
}

Trial NewTrial(Channel channel, const std::string& destination) {
  Trial trial;
  trial.channel = channel;
  trial.destination = destination;
  return trial;
}

std::vector<Trial> TrialsOf(const Wish& wish) {
  std::vector<Trial> trials;
  if (wish.mail && *m_mail_url != '\0') {
    trials.push_back(NewTrial(Channel::MAIL, Shown(m_mail_url)));
  } else if (wish.mail && *m_smtp_server_port != '\0') {
    trials.push_back(
        NewTrial(Channel::MAIL, Shown(std::string(m_stmp_server_url) + ":" + m_smtp_server_port)));
  }
  if (wish.chat && *m_webhook_server_url != '\0')
    trials.push_back(NewTrial(Channel::CHAT, Shown(UrlWithoutPath(m_webhook_server_url) + "/...")));
  for (int64_t i = 0; wish.servers && i < gSendInfo->server_count; ++i) {
    const SVC_SERVER& server = gSendInfo->servers[i];
    Trial trial =
        NewTrial(Channel::SERVER, Shown(std::string(server.address) + ":" + std::to_string(server.port)));
    trial.server = i;
    trial.start_alarm = wish.start_alarm;
    trials.push_back(trial);
  }
  return trials;
}

std::string Painted(Outcome outcome) {
  const Colour colour = outcome == Outcome::OK         ? Colour::GREEN
                        : outcome == Outcome::DOUBTFUL ? Colour::YELLOW
                                                       : Colour::RED;
  return Paint(colour, Padded(OutcomeName(outcome), 12));
}

std::string AnswerText(const PeerAnswer& answer) {
  const std::string code = answer.code == 0 ? "" : std::to_string(answer.code);
  return code + (code.empty() || answer.text.empty() ? "" : " ") + answer.text;
}

void PrintTrial(const Trial& trial, const Verdict& verdict, bool dialogue) {
  std::string text =
      Padded(ChannelName(trial.channel), 8) + trial.destination + base::Format("  %.2f s\n", trial.seconds);
  size_t width = verdict.whole.address.size();
  for (const PeerAnswer& answer : verdict.recipients) width = std::max(width, DisplayWidth(answer.address));
  std::vector<PeerAnswer> answers = verdict.recipients;
  answers.push_back(verdict.whole);
  for (const PeerAnswer& answer : answers) {
    text += "  " + Painted(answer.outcome);
    if (width > 0) text += Padded(answer.address, width + 3);
    text += AnswerText(answer) + "\n";
  }
  for (const std::string& note : verdict.notes) text += "  " + Padded("note", 12) + note + "\n";
  for (const Heard& heard : trial.heard) {
    if (dialogue && heard.who != Heard::Who::CONNECTED)
      text += std::string("  ") + (heard.who == Heard::Who::CLIENT ? "> " : "< ") +
              Shown(WithoutEnd(heard.text)) + "\n";
  }
  Print(text);
}

nlohmann::ordered_json OrNull(const std::string& text) {
  return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
}

nlohmann::ordered_json TrialJson(const Trial& trial, const Verdict& verdict) {
  const auto code = [](const PeerAnswer& answer) {
    return answer.code == 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(answer.code);
  };
  nlohmann::ordered_json recipients = nlohmann::ordered_json::array();
  for (const PeerAnswer& answer : verdict.recipients)
    recipients.push_back({{"address", answer.address},
                          {"outcome", OutcomeWord(answer.outcome)},
                          {"code", code(answer)},
                          {"answer", OrNull(answer.text)}});
  return {{"channel", ChannelName(trial.channel)},
          {"destination", trial.destination},
          {"outcome", OutcomeWord(verdict.whole.outcome)},
          {"code", code(verdict.whole)},
          {"answer", OrNull(verdict.whole.text)},
          {"seconds", trial.seconds},
          {"notes", verdict.notes},
          {"recipients", recipients}};
}

// The exit status: 0 all took it, 1 some, 2 a whole channel took nothing, 3 no channel.
int StatusOf(const std::vector<Trial>& trials, const std::vector<Verdict>& verdicts) {
  size_t tried = 0;
  size_t taken = 0;
  bool lost = false;
  for (const Channel channel : {Channel::MAIL, Channel::CHAT, Channel::SERVER}) {
    size_t here = 0;
    bool used = false;
    for (size_t i = 0; i < trials.size(); ++i) {
      if (trials[i].channel != channel) continue;
      used = true;
      tried += verdicts[i].tried;
      here += verdicts[i].taken;
    }
    taken += here;
    lost = lost || (used && here == 0);
  }
  if (tried == 0) return CANNOT_TELL;
  if (lost) return BROKEN;
  return taken == tried ? ALL_WELL : TO_LOOK_AT;
}

// Lines of the lists that the agent does not use.
void TellLeftOut(Verdict* verdict) {
  for (const std::string& line : gEmailLists.Get()->left_out) verdict->notes.push_back(Shown(line));
}

int Test(const Call& call, const Wish& wish, const std::vector<std::string>& environment) {
  PrepareRendering();
  std::vector<Trial> trials = TrialsOf(wish);
  if (trials.empty()) {
    Complain("no way to anybody is configured");
    return CANNOT_TELL;
  }
  RunTrials(&trials, wish.timeout * 1000, environment);
  const ChatAnswer chat{alarms::ChatOf(m_webhook_apps, m_webhook_card != 0).success, m_webhook_strict != 0};
  std::vector<Verdict> verdicts;
  size_t tried = 0;
  size_t taken = 0;
  nlohmann::ordered_json destinations = nlohmann::ordered_json::array();
  for (const Trial& trial : trials) {
    verdicts.push_back(JudgeHeard(trial.channel, trial.heard, trial.ended, chat));
    if (trial.channel == Channel::MAIL) TellLeftOut(&verdicts.back());
    tried += verdicts.back().tried;
    taken += verdicts.back().taken;
    destinations.push_back(TrialJson(trial, verdicts.back()));
    if (!call.json) PrintTrial(trial, verdicts.back(), call.Has("dialogue"));
  }
  if (call.json) {
    nlohmann::ordered_json json = JsonObject();
    json["tried"] = tried;
    json["taken"] = taken;
    json["destinations"] = destinations;
    PrintJson(json);
  } else {
    Print(std::to_string(taken) + " of " + std::to_string(tried) + " took it.\n");
  }
  return StatusOf(trials, verdicts);
}

int Run(const Call& call) {
  std::string complaint;
  const auto config = FindAgentConfig(call.config, &complaint);
  const std::optional<Wish> wish = config ? WishOf(call, &complaint) : std::nullopt;
  if (!wish) {
    Complain(complaint);
    return CANNOT_TELL;
  }
  const std::optional<RunningAgent> agent = AgentOn(config->file);
  const pid_t process = agent ? agent->process.pid : 0;
  const std::optional<RunAs> user = UserOfAgent(process, config->file);
  if (!user) {
    Complain("the agent's user is in no file of this host");
    return CANNOT_TELL;
  }
  const std::vector<std::string> environment = ReadTexts(process, "environ");
  bool taken_on = true;
  return DoAs(*user, &taken_on, [&] {
    if (!taken_on) Complain("tried as the caller: only root can take on user " + user->name);
    return Test(call, *wish, environment);
  });
}

constexpr Option OPTIONS[] = {
    {"to", 0, "WAYS", "of mail, chat and servers, with commas; else what the agent uses"},
    {"servers", 0, "open|start", "an open frame alone (as without it), or the start alarm"},
    {"timeout", 0, "SECONDS", "for each destination; 20 without it"},
    {"dialogue", 0, nullptr, "print what was said, logins and the chat's address left out"},
};

}  // namespace

extern const Command TEST_ALARM_COMMAND{
    "test-alarm", "send a marked alarm, and tell each peer's own words",
    "[--to mail,chat,servers] [--servers open|start] [--timeout SECONDS] [--dialogue]", OPTIONS, Run};

}  // namespace ctl
