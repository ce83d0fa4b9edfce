#include "Tovik/alarms/webhook_body.h"

#include "Tovik/alarms/alarm_body.h"
#include "Tovik/alarms/alarm_pictures.h"
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

}  // namespace

base::UniqueText WebHookBody(const Alarm& alarm, int64_t apps, time_t now, const char** reason) {
  return AlarmBody(alarm, apps == APPS_SLACK ? SlackForm : TeamsCard, now, reason);
}

}  // namespace alarms
