#include "ctl/check_rules.h"

#include <algorithm>
#include <tuple>

#include "ctl/text.h"

namespace ctl {
namespace {

// For keys that this build of the agent does not have.
const Setting MISSING;
const Look NOT_LOOKED_AT;

std::string Filled(std::string_view sentence, std::initializer_list<std::string_view> words) {
  std::string text;
  for (const std::string_view word : words) {
    const size_t at = sentence.find("{}");
    if (at == std::string_view::npos) break;
    text.append(sentence.substr(0, at)).append(Shown(word));
    sentence.remove_prefix(at + 2);
  }
  return text.append(sentence);
}

}  // namespace

const Setting& Facts::Of(std::string_view key) const {
  const auto found = settings.find(key);
  return found == settings.end() ? MISSING : found->second;
}

const Look& Facts::LookAt(std::string_view key) const {
  const auto found = looks.find(key);
  return found == looks.end() ? NOT_LOOKED_AT : found->second;
}

const char* LevelName(Level level) {
  switch (level) {
    case Level::ERROR:
      return "error";
    case Level::WARNING:
      return "warning";
    case Level::NOTE:
      return "note";
  }
  return "";
}

void Hits::Add(size_t line, std::string_view key, std::initializer_list<std::string_view> words) {
  AddIn(file_, line, key, words);
}

void Hits::AddIn(const std::string& file, size_t line, std::string_view key,
                 std::initializer_list<std::string_view> words) {
  findings_->push_back({rule_.id, rule_.level, file, line, Shown(key), Filled(rule_.sentence, words)});
}

std::vector<CheckFinding> Judge(const Facts& facts) {
  std::vector<CheckFinding> findings;
  for (const auto& table : {LINE_RULES, PATH_RULES, VALUE_RULES, CHANNEL_RULES, RECIPIENT_RULES}) {
    for (const Rule& rule : table) {
      Hits hits(rule, facts.file, &findings);
      rule.judge(facts, &hits);
    }
  }
  const auto place = [&](const CheckFinding& one) {
    return std::tuple(one.file != facts.file, one.line == 0, one.file != facts.file ? 0 : one.line);
  };
  std::stable_sort(findings.begin(), findings.end(), [&](const CheckFinding& one, const CheckFinding& other) {
    return place(one) < place(other);
  });
  return findings;
}

}  // namespace ctl
