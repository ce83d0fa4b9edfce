#include "Tovik/alarms/webhook_body.h"

#include "Tovik/alarms/adaptive_card.h"
#include "Tovik/alarms/alarm_pictures.h"
#include "Tovik/alarms/json_text.h"
#include "Tovik/config/config.h"
#include "base/format.h"

namespace alarms {
namespace {

constexpr int64_t APPS_SLACK = 2;

std::string SlackForm(const Alarm& alarm, const std::string& date) {
  return base::Format(
      "payload={\t\t\t\t\"channel\": \"#test\",              \"username\": \"%s\",     \t        \"text\": "
      "\"%s %s<br />%s\",              \"icon_emoji\": \":ghost:\"         }",
      alarm.label.c_str(), alarm.title.c_str(), date.c_str(), alarm.message.c_str());
}

std::string TeamsCard(const Alarm& alarm, const std::string& date) {
  const char* const picture = PictureOf(alarm.kind, &AlarmPictures::webhook);
  return base::Format(
      "{\"@type\": \"MessageCard\",\"@context\": \"http://schema.org/extensions"
      "\",\"themeColor\": \"0076D7\",\"summary\": \"%s\",\"sections\": [{   \"activityTitle\": \"%s\",   "
      "\"activitySubtitle\": \"%s\",   \"activityImage\": \"%s\",   \"facts\": [{       \"name\": "
      "\"Assigned IP\",       \"value\": \"%s\"    }, {       \"name\": \"Send date\",       \"value\": "
      "\"%s\"    }, {       \"name\": \"Message\",       \"value\": \"%s\"    }],    \"markdown\": true}]}",
      alarm.title.c_str(), alarm.title.c_str(), alarm.label.c_str(), picture, alarm.host.c_str(),
      date.c_str(), alarm.message.c_str());
}

// Newlines stay for now: RepairedBody turns them into "<br />".
constexpr std::string_view NEWLINE = "\n";

template <Layout layout>
std::string Escaped(const Alarm& alarm, const std::string& date) {
  return layout({alarm.kind, JsonText(alarm.title, NEWLINE), JsonText(alarm.label, NEWLINE),
                 JsonText(alarm.message, NEWLINE), JsonText(alarm.host, NEWLINE)},
                date);
}

std::string_view EscapedPrefix(std::string_view text, size_t limit) {
  return JsonPrefix(text, limit, NEWLINE);
}

const Writing ESCAPED = {UTF8.size, EscapedPrefix};
const Chat MESSAGE_CARD = {TeamsCard, Escaped<TeamsCard>, ESCAPED, "1"};
const Chat FORM = {SlackForm, Escaped<SlackForm>, ESCAPED, "ok"};
const Chat ADAPTIVE = {nullptr, AdaptiveCard, ADAPTIVE_WRITING, ""};

}  // namespace

const Chat& ChatOf(int64_t apps, bool adaptive) {
  if (adaptive) return ADAPTIVE;
  return apps == APPS_SLACK ? FORM : MESSAGE_CARD;
}

base::UniqueText WebHookBody(const Alarm& alarm, int64_t apps, time_t now, const char** reason) {
  const Chat& chat = ChatOf(apps, m_webhook_card != 0);
  if (chat.plain != nullptr && m_webhook_strict == 0) return AlarmBody(alarm, chat.plain, now, reason);
  return RepairedBody(alarm, chat.escaped, chat.writing, now, reason);
}

}  // namespace alarms
