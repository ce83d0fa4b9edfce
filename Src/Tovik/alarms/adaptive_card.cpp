#include "Tovik/alarms/adaptive_card.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "Tovik/alarms/alarm_pictures.h"
#include "Tovik/alarms/json_text.h"
#include "base/format.h"

namespace alarms {
namespace {

// A line break in a card's text takes two newlines.
constexpr std::string_view NEWLINE = "\\n\\n";

std::string InCard(std::string_view text) {
  return JsonText(text, NEWLINE);
}

std::string_view CardPrefix(std::string_view text, size_t limit) {
  return JsonPrefix(text, limit, NEWLINE);
}

size_t CardSize(std::string_view text) {
  return text.size();
}

std::string PictureColumn(uint32_t kind) {
  const char* const picture = PictureOf(kind, &AlarmPictures::webhook);
  if (*picture == '\0') return {};
  return base::Format(
      R"({"type":"Column","width":"auto","items":[{"type":"Image","url":"%s","width":"52px"}]},)", picture);
}

std::string TextBlock(const char* looks, const std::string& text) {
  return base::Format(R"({"type":"TextBlock","wrap":true,%s,"text":"%s"})", looks, text.c_str());
}

std::string Fact(const char* name, const std::string& value) {
  return base::Format(R"({"title":"%s","value":"%s"})", name, value.c_str());
}

// What replaces an end tag.
struct TagWords {
  std::string_view tag;
  std::string_view words;
};
constexpr std::array<TagWords, 3> END_TAGS{{{"</tr>", "\n"}, {"</td>", " | "}, {"</th>", " | "}}};

std::string_view WordsOf(std::string_view tag) {
  for (const TagWords& row : END_TAGS)
    if (row.tag == tag) return row.words;
  return {};
}

}  // namespace

const Writing ADAPTIVE_WRITING = {CardSize, CardPrefix};

std::string AdaptiveCard(const Alarm& alarm, const std::string& date) {
  const std::string title = InCard(alarm.title);
  const bool table = alarm.kind == ALARM_KIND_RESULT;
  const std::string heading = TextBlock(R"("weight":"Bolder","size":"Medium")", title) + "," +
                              TextBlock(R"("isSubtle":true,"spacing":"None")", InCard(alarm.label));
  const std::string facts = Fact("Assigned IP", InCard(alarm.host)) + "," + Fact("Send date", date) + "," +
                            Fact("Message", InCard(table ? TableWords(alarm.message) : alarm.message));
  return base::Format(
      R"({"type":"message","summary":"%s","attachments":[{)"
      R"("contentType":"application/vnd.microsoft.card.adaptive","contentUrl":null,"content":{)"
      R"("$schema":"http://adaptivecards.io/schemas/adaptive-card.json","type":"AdaptiveCard","version":"1.4",)"
      R"("msteams":{"width":"Full"},"body":[{"type":"ColumnSet","columns":[%s)"
      R"({"type":"Column","width":"stretch","items":[%s]}]},{"type":"FactSet","facts":[%s]}]}}]})",
      title.c_str(), PictureColumn(alarm.kind).c_str(), heading.c_str(), facts.c_str());
}

std::string TableWords(const std::string& html) {
  std::string words;
  for (size_t at = 0; at < html.size();) {
    const size_t open = std::min(html.find('<', at), html.size());
    words.append(html, at, open - at);
    const size_t close = html.find('>', open);
    if (close == std::string::npos) break;
    words += WordsOf(std::string_view(html).substr(open, close + 1 - open));
    at = close + 1;
  }
  // Removes the mark after the last cell of each row.
  for (size_t at = words.find(" | \n"); at != std::string::npos; at = words.find(" | \n", at))
    words.erase(at, 3);
  return words.substr(0, words.find_last_not_of('\n') + 1);
}

}  // namespace alarms
