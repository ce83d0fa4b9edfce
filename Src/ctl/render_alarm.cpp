#include "ctl/render_alarm.h"

#include <ifaddrs.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "DIOSVC/alarm_codes.h"
#include "DIOSVC/report_types.h"
#include "DIOSVC/server_frames.h"
#include "Tovik/alarms/alarm_mail.h"
#include "Tovik/alarms/alarm_mail_body.h"
#include "Tovik/alarms/recipients.h"
#include "Tovik/alarms/webhook_body.h"
#include "Tovik/checks/average_table.h"
#include "Tovik/checks/result_check.h"
#include "Tovik/config/config.h"
#include "Tovik/config/host_address.h"
#include "Tovik/findings/findings.h"
#include "base/regular_file.h"
#include "ctl/text.h"
#include "smtp/smtp.h"

namespace ctl {
namespace {

constexpr int64_t APPS_FORM = 2;      // value of WEBHOOK_APPS for the form
constexpr size_t LONGEST_LINE = 998;  // bytes of a line of a mail, without its end
constexpr std::string_view FORM_START = "payload=";
constexpr const char* ERROR_EXAMPLE =
    "[2026/01/31 14:05:03] ERROR decoder 3: no answer within 5000 ms\n"
    "[2026/01/31 14:05:04] ERROR channel 17: audio ends early\n";
constexpr ResultAverages AVERAGES_EXAMPLE = {0.12, 4210.5, 505.3, 612.8};
constexpr int64_t COUNT_EXAMPLE = 1234;
constexpr const char* HANG_EXAMPLE = "deaded - disconnect";  // of the hang log's words

struct AddressesFree {
  void operator()(ifaddrs* list) const { ::freeifaddrs(list); }
};

// What a check puts into an alarm.
struct Content {
  std::string message;
  std::string attachment;  // empty: none
  std::vector<Remark> remarks;
};

Content OverContent(const char* what, int64_t limit) {
  // The figure that just reaches the threshold.
  return {OverMessage(m_sz_proc_name, what, static_cast<int>(limit), static_cast<int>(limit)), "", {}};
}

std::string Table(const std::string& date, int64_t count, const ResultAverages& averages) {
  char table[AVERAGE_TABLE_SIZE] = "";
  if (count > 0) FormatAverageTable(date.c_str(), count, averages, table);
  return table;
}

Content ResultContent(std::time_t now) {
  const ResultDay day = ResultDayAt(now, m_sz_svc_txt_path, HostNameInFiles());
  const int64_t count = base::CountFileNewlines(day.path.c_str());
  const UniqueResults records(count < 0 ? nullptr : GetResultReadData(day.path.c_str(), count));
  if (records == nullptr)
    return {
        Table(day.date, COUNT_EXAMPLE, AVERAGES_EXAMPLE),
        "",
        {{false, Shown(day.path) + " cannot be read: figures are examples, and the attachment is left out"}}};
  return {
      Table(day.date, count, count > 0 ? AverageOf(records.get(), count) : ResultAverages{}), day.path, {}};
}

Content ChannelContent(std::time_t /*now*/) {
  return OverContent("Channel", gSendInfo->ch_over_value);
}
Content MemoryContent(std::time_t /*now*/) {
  return OverContent("Memory", gSendInfo->mem_over_value);
}
Content CpuContent(std::time_t /*now*/) {
  return OverContent("CPU", gSendInfo->cpu_over_value);
}
Content RestartContent(std::time_t /*now*/) {
  return {RestartMessage(m_sz_proc_name), m_sz_cfg_file, {}};
}
Content ErrorContent(std::time_t /*now*/) {
  return {ERROR_EXAMPLE, "", {{false, "the error lines are examples"}}};
}
Content HangContent(std::time_t /*now*/) {
  const int64_t times = std::max<int64_t>(m_hang_alarm, 1);
  return {HangMessage(m_sz_proc_name, HANG_EXAMPLE, times), "", {}};
}

// The content of each finding, by its name in the table of findings.
struct ContentRow {
  std::string_view name;
  Content (*content)(std::time_t now);
};
constexpr ContentRow CONTENTS[] = {
    {"threshold-channel", ChannelContent},
    {"threshold-memory", MemoryContent},
    {"threshold-cpu", CpuContent},
    {"restart", RestartContent},
    {"result", ResultContent},
    {"error-log", ErrorContent},
    {"hang", HangContent},
};

Content ContentOf(const FindingRow& row, std::time_t now) {
  for (const ContentRow& known : CONTENTS) {
    if (known.name == row.name) return known.content(now);
  }
  if (row.label == nullptr) return {};
  return {std::string(m_sz_proc_name) + " " + row.subject, "", {{false, "the message is an example"}}};
}

void Add(std::vector<Remark>* remarks, const std::vector<Remark>& more) {
  remarks->insert(remarks->end(), more.begin(), more.end());
}

// MailAlarm itself, to nobody.
smtp_printed PrintMail(const Alarm& alarm) {
  smtp_printed printed{{}, SMTP_SUCCESS};
  smtp_print_instead = &printed;
  MailAlarm(alarm);
  smtp_print_instead = nullptr;
  return printed;
}

void RenderMail(const Alarm& alarm, std::time_t now, RenderedAlarm* rendered) {
  const char* reason = nullptr;
  const base::UniqueText body = alarms::MailBody(alarm, now, &reason);
  if (body == nullptr) {
    rendered->remarks.push_back({true, "no mail is sent: " + Shown(reason)});
    return;
  }
  rendered->html = body.get();
  if (*m_mail_url != '\0') {
    rendered->remarks.push_back({false, "mail leaves by MAIL_URL: only its HTML is shown"});
    return;
  }
  const smtp_printed printed = PrintMail(alarm);
  if (printed.status != SMTP_SUCCESS) {
    rendered->remarks.push_back(
        {true, std::string("no mail is sent: ") + smtp_status_code_errstr(printed.status) +
                   (alarm.attachment == nullptr ? "" : ": " + Shown(alarm.attachment))});
    return;
  }
  rendered->mail = printed.text;
  Add(&rendered->remarks, JudgeMail(rendered->mail));
}

void RenderCard(const Alarm& alarm, std::time_t now, RenderedAlarm* rendered) {
  const char* reason = nullptr;
  const base::UniqueText body = alarms::WebHookBody(alarm, m_webhook_apps, now, &reason);
  rendered->is_form = m_webhook_apps == APPS_FORM && m_webhook_card == 0;
  if (body == nullptr) {
    rendered->remarks.push_back({true, "no card is posted: " + Shown(reason)});
    return;
  }
  rendered->card = body.get();
  Add(&rendered->remarks, JudgeCard(rendered->card, rendered->is_form));
}

}  // namespace

void PrepareRendering() {
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) == 0) {
    const std::unique_ptr<ifaddrs, AddressesFree> owned(list);
    ChooseIpAddr(list, gIpaddr, false);
  }
  gEmailLists.Set(ReadEMailLists(m_receiver_email, m_reference_email, m_blind_email));
}

RenderedAlarm RenderAlarm(const FindingRow& row, std::time_t now, const std::string* message) {
  Content content = ContentOf(row, now);
  if (message != nullptr) content.message = *message;
  RenderedAlarm rendered;
  rendered.name = row.name;
  rendered.remarks = content.remarks;
  if (row.alarmCode != NO_ALARM_CODE)
    rendered.frame = frames::DataFrame(0, REPORT_ALARM, AlarmText(row.alarmCode));
  if (row.label == nullptr) return rendered;
  const Alarm alarm = AlarmOf({row.finding, m_sz_proc_name, content.message.c_str(),
                               content.attachment.empty() ? nullptr : content.attachment.c_str()});
  rendered.title = Shown(alarm.title);
  RenderMail(alarm, now, &rendered);
  RenderCard(alarm, now, &rendered);
  return rendered;
}

std::vector<Remark> JudgeCard(std::string_view card, bool is_form) {
  if (is_form && card.starts_with(FORM_START)) card.remove_prefix(FORM_START.size());
  try {
    [[maybe_unused]] const nlohmann::json parsed = nlohmann::json::parse(card);
    return {};
  } catch (const nlohmann::json::parse_error& error) {
    const std::string reason = error.what();
    const size_t name = reason.find("] ");
    return {{true, "the card is no valid JSON, a chat refuses it: " +
                       Shown(name == std::string::npos ? reason : reason.substr(name + 2))}};
  }
}

std::vector<Remark> JudgeMail(std::string_view mail) {
  std::vector<Remark> remarks;
  size_t longest = 0;
  for (size_t at = 0; at < mail.size();) {
    const size_t end = std::min(mail.find("\r\n", at), mail.size());
    longest = std::max(longest, end - at);
    at = end + 2;
  }
  if (longest > LONGEST_LINE)
    remarks.push_back({false, "the mail's longest line has " + std::to_string(longest) +
                                  " bytes, 998 are allowed: some servers refuse or break it"});
  const std::string_view head = mail.substr(0, mail.find("\r\n\r\n"));
  if (std::any_of(head.begin(), head.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; }))
    remarks.push_back({false, "the mail's headers hold bytes beyond ASCII that nothing announces"});
  return remarks;
}

}  // namespace ctl
