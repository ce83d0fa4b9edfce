#include "ctl/render_page.h"

#include <nlohmann/json.hpp>

#include "base/format.h"
#include "ctl/text.h"

namespace ctl {
namespace {

constexpr size_t SHOWN_CARD = 65536;
constexpr std::string_view FORM_START = "payload=";

constexpr const char* HEAD = R"(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; img-src data:; style-src 'unsafe-inline'">
<link rel="icon" href="data:,">
<title>Alarms of this host</title>
<style>
:root { color-scheme: light dark; --line: #d4d7de; --paper: #fff; --ground: #f5f6f8; --ink: #20242c; --soft: #5b6372;
  --wrong: #b3261e; --note: #8a5a00; }
@media (prefers-color-scheme: dark) { :root { --line: #3a404c; --paper: #1d2129; --ground: #14171d; --ink: #e6e9ef;
  --soft: #9aa3b2; --wrong: #ff8a80; --note: #e5b567; } }
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 76rem; padding: 1rem; background: var(--ground); color: var(--ink);
  font: 16px/1.45 system-ui, "Noto Sans CJK KR", sans-serif; }
h1 { font-size: 1.4rem; margin: .2rem 0; }
p.where { color: var(--soft); margin: 0 0 1rem; overflow-wrap: anywhere; }
section { background: var(--paper); border: 1px solid var(--line); border-radius: .6rem; padding: 1rem; margin: 0 0 1rem; }
h2 { font-size: 1.1rem; margin: 0; }
h2 span { font-weight: 400; color: var(--soft); overflow-wrap: anywhere; }
h3 { font-size: .8rem; letter-spacing: .05em; text-transform: uppercase; color: var(--soft); margin: 1rem 0 .4rem; }
ul { margin: .5rem 0 0; padding-left: 1.2rem; overflow-wrap: anywhere; }
.wrong { color: var(--wrong); font-weight: 600; }
.note { color: var(--note); }
.mail { overflow-x: auto; }
iframe { width: 100%; min-width: 832px; height: 11rem; border: 1px solid var(--line); border-radius: .4rem; background: #fff; }
.result iframe { height: 20rem; }
.two { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(100%, 22rem), 1fr)); gap: 0 1.5rem; }
.card { display: flex; gap: .8rem; border-left: 4px solid #0076d7; padding-left: .8rem; }
.card img { width: 52px; height: 52px; flex: none; }
.card p { margin: 0; overflow-wrap: anywhere; }
dl { display: grid; grid-template-columns: auto 1fr; gap: .1rem .8rem; margin: .5rem 0 0; }
dt { color: var(--soft); }
dd { margin: 0; overflow-wrap: anywhere; }
pre { margin: 0; white-space: pre-wrap; overflow-wrap: anywhere; font: .85rem/1.5 ui-monospace, monospace; }
</style></head><body>
)";

std::string Element(const char* tag, const std::string& inner) {
  return std::string("<") + tag + ">" + inner + "</" + tag + ">";
}

std::string TextOf(const nlohmann::json& object, const char* key) {
  const auto found = object.is_object() ? object.find(key) : object.end();
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::string Facts(const nlohmann::json& section) {
  const auto facts = section.find("facts");
  std::string rows;
  if (facts == section.end() || !facts->is_array()) return rows;
  for (const nlohmann::json& fact : *facts)
    rows +=
        Element("dt", EscapedHtml(TextOf(fact, "name"))) + Element("dd", EscapedHtml(TextOf(fact, "value")));
  return Element("dl", rows);
}

std::string CardView(const nlohmann::json& card) {
  const auto sections = card.find("sections");
  if (sections == card.end() || !sections->is_array() || sections->empty() || !sections->front().is_object())
    return Element("pre", EscapedHtml(card.dump(2, ' ', false, nlohmann::json::error_handler_t::replace)));
  const nlohmann::json& section = sections->front();
  std::string text = "<div class=\"card\">";
  const std::string picture = TextOf(section, "activityImage");
  if (picture.starts_with("data:image/")) text += "<img alt=\"\" src=\"" + EscapedHtml(picture) + "\">";
  text += "<div>" + Element("p", Element("b", EscapedHtml(TextOf(section, "activityTitle")))) +
          Element("p", EscapedHtml(TextOf(section, "activitySubtitle"))) + Facts(section) + "</div></div>\n";
  return text;
}

// The card as a chat would show it; its bytes when the chat would refuse them.
std::string CardOf(const RenderedAlarm& alarm) {
  std::string_view text = alarm.card;
  if (alarm.is_form && text.starts_with(FORM_START)) text.remove_prefix(FORM_START.size());
  const nlohmann::json card = nlohmann::json::parse(text, nullptr, false);
  if (card.is_object()) return CardView(card);
  return Element("pre", EscapedHtml(Printable(alarm.card, SHOWN_CARD)));
}

std::string Hexadecimal(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) text += base::Format("%02x ", static_cast<unsigned char>(byte));
  return text;
}

std::string SectionOf(const RenderedAlarm& alarm) {
  std::string text =
      "<section class=\"" + EscapedHtml(alarm.name) + "\">" +
      Element("h2", EscapedHtml(alarm.name) + " <span>" + EscapedHtml(alarm.title) + "</span>");
  std::string remarks;
  for (const Remark& remark : alarm.remarks)
    remarks += std::string("<li class=\"") + (remark.wrong ? "wrong" : "note") + "\">" +
               EscapedHtml(remark.text) + "</li>";
  if (!remarks.empty()) text += Element("ul", remarks);
  if (!alarm.html.empty())
    text += Element("h3", "Mail") + "<div class=\"mail\"><iframe sandbox title=\"mail " +
            EscapedHtml(alarm.name) + "\" srcdoc=\"" + EscapedHtml(alarm.html) + "\"></iframe></div>";
  text += "<div class=\"two\">";
  if (!alarm.card.empty())
    text += Element("div", Element("h3", alarm.is_form ? "Chat, as a form" : "Chat") + CardOf(alarm));
  if (!alarm.frame.empty())
    text += Element(
        "div", Element("h3", "Management servers") + Element("pre", EscapedHtml(EscapedBytes(alarm.frame)) +
                                                                        "\n\n" + Hexadecimal(alarm.frame)));
  return text + "</div></section>\n";
}

}  // namespace

std::string EscapedHtml(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::string EscapedBytes(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    const bool plain = byte >= ' ' && byte <= '~' && byte != '\\';
    text += plain ? std::string(1, byte) : base::Format("\\x%02x", static_cast<unsigned char>(byte));
  }
  return text;
}

std::string RenderedPage(const std::vector<RenderedAlarm>& alarms, std::string_view where) {
  std::string page = HEAD;
  page += Element("h1", "Alarms of this host") + "<p class=\"where\">" + EscapedHtml(where) + "</p>\n";
  for (const RenderedAlarm& alarm : alarms) page += SectionOf(alarm);
  return page + "</body></html>\n";
}

}  // namespace ctl
