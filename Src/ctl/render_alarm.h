// Renders every alarm of the agent as the bytes that would be sent, and tells what is wrong with them.
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
  bool wrong;        // false: only worth knowing
  std::string text;  // UTF-8
};

// One alarm on every channel. A channel that it does not use, or that cannot carry it, is empty.
struct RenderedAlarm {
  std::string name;      // of its files
  std::string title;     // UTF-8
  std::string mail;      // headers and body
  std::string html;      // the mail's body
  std::string card;      // the body of the post
  bool is_form = false;  // the post is a form, not a card
  std::string frame;     // for the management servers, with connection tag 0
  std::vector<Remark> remarks;
};

// Renders the alarm with the texts and figures that this configuration gives it at that moment. message (code
// page 949), unless null, replaces its message. Reads the lists of recipients, the attachment and yesterday's
// results; changes nothing. Needs a loaded configuration (agent_config.h) and PrepareRendering.
RenderedAlarm RenderAlarm(const FindingRow& row, std::time_t now, const std::string* message);

// Finds this host's address and reads the lists of recipients. Call it once, before RenderAlarm.
void PrepareRendering();

// What is wrong with the bytes of a post or of a mail. Pure.
std::vector<Remark> JudgeCard(std::string_view card, bool is_form);
std::vector<Remark> JudgeMail(std::string_view mail);

}  // namespace ctl

#endif
