// Every alarm of the agent as the bytes that would leave, and what is wrong with them.
#ifndef CTL_RENDER_ALARM_H
#define CTL_RENDER_ALARM_H

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Tovik/findings/findings.h"

namespace ctl {

struct Remark {
  bool wrong;        // else only worth knowing
  std::string text;  // UTF-8
};

// One alarm on every channel; a channel that it does not have, or that cannot carry it, is empty.
struct RenderedAlarm {
  std::string name;      // of its files
  std::string title;     // UTF-8
  std::string mail;      // all of it, from the first header on
  std::string html;      // the mail's body
  std::string card;      // what is posted
  bool is_form = false;  // not a card
  std::string frame;     // of the management servers, connection tag 0
  std::vector<Remark> remarks;
};

// The alarm with the texts and figures that this configuration gives it at that moment; message, when given,
// takes the place of its message (code page 949). Reads the lists of recipients, the attachment and
// yesterday's results, changes nothing. The configuration must have been loaded (agent_config.h).
RenderedAlarm RenderAlarm(const FindingRow& row, std::time_t now, const std::string* message);

// What RenderAlarm needs once: this host's address and the lists of recipients.
void PrepareRendering();

// What is wrong with bytes that would leave. Pure.
std::vector<Remark> JudgeCard(std::string_view card, bool is_form);
std::vector<Remark> JudgeMail(std::string_view mail);

}  // namespace ctl

#endif
