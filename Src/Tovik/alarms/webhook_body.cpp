#include "Tovik/alarms/webhook_body.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "Tovik/alarms/alarm_pictures.h"
#include "Tovik/config/config.h"
#include "base/format.h"
#include "charset/utf8_text.h"

namespace alarms {
namespace {

constexpr int64_t APPS_SLACK = 2;

std::string SlackForm(const Alarm& alarm, const std::string& form_date) {
  return base::Format(
      "payload={\t\t\t\t\"channel\": \"#test\",              \"username\": \"%s\",     \t        \"text\": "
      "\"%s %s<br />%s\",              \"icon_emoji\": \":ghost:\"         }",
      alarm.label.c_str(), alarm.title.c_str(), form_date.c_str(), alarm.message.c_str());
}

std::string TeamsCard(const Alarm& alarm, const std::string& card_date) {
  const char* const card_picture = PictureOf(alarm.kind, &AlarmPictures::webhook);
  return base::Format(
      "{\"@type\": \"MessageCard\",\"@context\": \"http://schema.org/extensions"
      "\",\"themeColor\": \"0076D7\",\"summary\": \"%s\",\"sections\": [{   \"activityTitle\": \"%s\",   "
      "\"activitySubtitle\": \"%s\",   \"activityImage\": \"%s\",   \"facts\": [{       \"name\": "
      "\"Assigned IP\",       \"value\": \"%s\"    }, {       \"name\": \"Send date\",       \"value\": "
      "\"%s\"    }, {       \"name\": \"Message\",       \"value\": \"%s\"    }],    \"markdown\": true}]}",
      alarm.title.c_str(), alarm.title.c_str(), alarm.label.c_str(), card_picture, alarm.host.c_str(),
      card_date.c_str(), alarm.message.c_str());
}

constexpr std::string_view JSON_ESCAPED = "\"\\\t\r\b\f";
constexpr std::string_view JSON_LETTERS = "\"\\trbf";

// The escaped form of a byte. It is short, so std::string allocates nothing for it.
std::string JsonOf(char c, std::string_view json_newline) {
  if (c == '\n') return std::string(json_newline);
  if (const size_t at = JSON_ESCAPED.find(c); at != std::string_view::npos) return {'\\', JSON_LETTERS[at]};
  if (static_cast<uint8_t>(c) < ' ') return base::Format("\\u%04x", static_cast<unsigned>(c));
  return {c};
}

// A UTF-8 text as it stands inside the quotes of JSON (RFC 8259). json_newline is what each newline
// becomes.
std::string JsonText(std::string_view text, std::string_view json_newline) {
  std::string json;
  json.reserve(text.size());
  for (const char c : text) json += JsonOf(c, json_newline);
  return json;
}

// The longest beginning of text, in whole characters, whose JsonText has at most limit bytes.
std::string_view JsonPrefix(std::string_view text, size_t limit, std::string_view json_newline) {
  size_t json_size = 0;
  size_t json_taken = 0;
  while (json_taken < text.size()) {
    json_size += JsonOf(text[json_taken], json_newline).size();
    if (json_size > limit) break;
    ++json_taken;
  }
  return charset::Utf8Prefix(text, json_taken);
}

// Newlines stay for now: RepairedBody turns them into "<br />".
constexpr std::string_view JSON_NEWLINE = "\n";

template <BodyLayout json_layout>
std::string JsonEscaped(const Alarm& alarm, const std::string& date) {
  return json_layout({alarm.kind, JsonText(alarm.title, JSON_NEWLINE), JsonText(alarm.label, JSON_NEWLINE),
                      JsonText(alarm.message, JSON_NEWLINE), JsonText(alarm.host, JSON_NEWLINE)},
                     date);
}

std::string_view JsonEscapedPrefix(std::string_view text, size_t limit) {
  return JsonPrefix(text, limit, JSON_NEWLINE);
}

// A line break in a card's text takes two newlines.
constexpr std::string_view CARD_NEWLINE = "\\n\\n";

std::string JsonInCard(std::string_view text) {
  return JsonText(text, CARD_NEWLINE);
}

std::string_view CardPrefix(std::string_view text, size_t limit) {
  return JsonPrefix(text, limit, CARD_NEWLINE);
}

std::string CardPictureColumn(uint32_t kind) {
  const char* const card_picture = PictureOf(kind, &AlarmPictures::webhook);
  if (*card_picture == '\0') return {};
  return base::Format(
      R"({"type":"Column","width":"auto","items":[{"type":"Image","url":"%s","width":"52px"}]},)",
      card_picture);
}

std::string CardTextBlock(const char* looks, const std::string& text) {
  return base::Format(R"({"type":"TextBlock","wrap":true,%s,"text":"%s"})", looks, text.c_str());
}

std::string CardFact(const char* name, const std::string& value) {
  return base::Format(R"({"title":"%s","value":"%s"})", name, value.c_str());
}

// What replaces an end tag.
struct CardTagWords {
  std::string_view end_tag;
  std::string_view card_words;
};
constexpr std::array<CardTagWords, 3> TABLE_END_TAGS{{{"</tr>", "\n"}, {"</td>", " | "}, {"</th>", " | "}}};

std::string_view CardWordsOfTag(std::string_view end_tag) {
  for (const CardTagWords& card_tag : TABLE_END_TAGS)
    if (card_tag.end_tag == end_tag) return card_tag.card_words;
  return {};
}

// Adaptive cards show no HTML, so the table of a daily result becomes one line per row.
std::string AdaptiveCard(const Alarm& alarm, const std::string& card_date) {
  const std::string card_title = JsonInCard(alarm.title);
  const bool card_table = alarm.kind == ALARM_KIND_RESULT;
  const std::string card_heading =
      CardTextBlock(R"("weight":"Bolder","size":"Medium")", card_title) + "," +
      CardTextBlock(R"("isSubtle":true,"spacing":"None")", JsonInCard(alarm.label));
  const std::string card_facts =
      CardFact("Assigned IP", JsonInCard(alarm.host)) + "," + CardFact("Send date", card_date) + "," +
      CardFact("Message", JsonInCard(card_table ? CardTableWords(alarm.message) : alarm.message));
  return base::Format(
      R"({"type":"message","summary":"%s","attachments":[{)"
      R"("contentType":"application/vnd.microsoft.card.adaptive","contentUrl":null,"content":{)"
      R"("$schema":"http://adaptivecards.io/schemas/adaptive-card.json","type":"AdaptiveCard","version":"1.4",)"
      R"("msteams":{"width":"Full"},"body":[{"type":"ColumnSet","columns":[%s)"
      R"({"type":"Column","width":"stretch","items":[%s]}]},{"type":"FactSet","facts":[%s]}]}}]})",
      card_title.c_str(), CardPictureColumn(alarm.kind).c_str(), card_heading.c_str(), card_facts.c_str());
}

const BodyWriting JSON_ESCAPED_WRITING = {BytesOfBody, JsonEscapedPrefix};
const BodyWriting ADAPTIVE_CARD_WRITING = {BytesOfBody, CardPrefix};
const Chat MESSAGE_CARD = {TeamsCard, JsonEscaped<TeamsCard>, JSON_ESCAPED_WRITING, "1"};
const Chat SLACK_FORM = {SlackForm, JsonEscaped<SlackForm>, JSON_ESCAPED_WRITING, "ok"};
const Chat ADAPTIVE_CARD = {nullptr, AdaptiveCard, ADAPTIVE_CARD_WRITING, ""};

}  // namespace

const Chat& ChatOf(int64_t apps, bool adaptive) {
  if (adaptive) return ADAPTIVE_CARD;
  return apps == APPS_SLACK ? SLACK_FORM : MESSAGE_CARD;
}

base::UniqueText WebHookBody(const Alarm& alarm, int64_t apps, time_t now, const char** reason) {
  const Chat& chat = ChatOf(apps, m_webhook_card != 0);
  if (chat.plain != nullptr && m_webhook_strict == 0) return AlarmBody(alarm, chat.plain, now, reason);
  return RepairedBody(alarm, chat.escaped, chat.writing, now, reason);
}

std::string CardTableWords(const std::string& card_html) {
  std::string card_words;
  for (size_t card_at = 0; card_at < card_html.size();) {
    const size_t tag_open = std::min(card_html.find('<', card_at), card_html.size());
    card_words.append(card_html, card_at, tag_open - card_at);
    const size_t tag_close = card_html.find('>', tag_open);
    if (tag_close == card_html.npos) break;
    card_words += CardWordsOfTag(std::string_view(card_html).substr(tag_open, tag_close + 1 - tag_open));
    card_at = tag_close + 1;
  }
  // Removes the mark after the last cell of each row.
  for (size_t card_at = card_words.find(" | \n"); card_at != std::string::npos;
       card_at = card_words.find(" | \n", card_at))
    card_words.erase(card_at, 3);
  return card_words.substr(0, card_words.find_last_not_of('\n') + 1);
}

}  // namespace alarms
