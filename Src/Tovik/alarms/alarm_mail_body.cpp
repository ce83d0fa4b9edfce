#include "Tovik/alarms/alarm_mail_body.h"

#include "Tovik/alarms/alarm_body.h"
#include "Tovik/alarms/alarm_pictures.h"
#include "base/format.h"

namespace alarms {
namespace {

std::string HtmlMailBody(const Alarm& alarm, const std::string& mail_date) {
  const char* const mail_picture = PictureOf(alarm.kind, &AlarmPictures::mail);
  return base::Format(
      "<html><head><title>No Title</title><body><div>\t<div style='margin:auto;width:800px;'>\t\t"
      "<div style='padding:5pt 5pt 5pt 7.5pt;background-color:#6365A2;font-size:15pt;"
      "font-family:\"Segoe UI\",sans-serif;color:white;'>%s\t\t</div>\t\t"
      "<div style='background:#F3F2F1;padding:18pt 7.5pt 15pt 9pt;'>\t\t\t<table>\t\t\t\t<tr>\t\t\t\t\t"
      "<td style='padding:7.5pt 7.5pt 0 0;vertical-align:top;width:40px;'>\t\t\t\t\t\t"
      "<img src='%s' width='40px' style='width:40px; max-width:40px' />\t\t\t\t\t</td>\t\t\t\t\t"
      "<td style='padding:7.5pt 7.5pt 7.5pt 7.5pt;background-color:#FFFFFF;'>\t\t\t\t\t\t"
      "<div style='margin-bottom:7.5pt;'>\t\t\t\t\t\t\t"
      "<b style='font-size:9pt;font-family:\"Segoe UI\",sans-serif;color:#323130;'>%s</b>\t\t\t\t\t\t\t"
      "<span>&nbsp;&nbsp;&nbsp;&nbsp;</span>\t\t\t\t\t\t\t"
      "<span style='font-size:9pt;font-family:\"Segoe UI\",sans-serif;color:gray'>%s</span>\t\t\t\t\t\t"
      "</div>\t\t\t\t\t\t"
      "<div style='word-break:break-word;;font-size:10.5pt;font-family:\"Segoe UI\",sans-serif;"
      "color:#323130'>%s</div>\t\t\t\t\t</td>\t\t\t\t</tr>\t\t\t</table>\t\t</div>\t</div></div></body>"
      "</html>",
      alarm.title.c_str(), mail_picture, alarm.label.c_str(), mail_date.c_str(), alarm.message.c_str());
}

}  // namespace

base::UniqueText MailBody(const Alarm& alarm, time_t mail_time, const char** reason) {
  return AlarmBody(alarm, HtmlMailBody, mail_time, reason);
}

}  // namespace alarms
