// Rules on the lines of the configuration itself.
#include <algorithm>
#include <map>

#include "Tovik/config/config.h"
#include "base/number.h"
#include "ctl/check_rules.h"
#include "ctl/near_name.h"
#include "ctl/text.h"

namespace ctl {
namespace {

// Keys in the agent's file that only the tool reads.
constexpr std::string_view TOOL_KEYS[] = {"HISTORY_PATH"};
constexpr const char* LINE_END = "\n";

std::vector<std::string_view> KnownKeys() {
  std::vector<std::string_view> names(std::begin(TOOL_KEYS), std::end(TOOL_KEYS));
  for (const ConfigKey& key : ConfigKeys()) names.emplace_back(key.name);
  return names;
}

bool Known(std::string_view key) {
  static const std::vector<std::string_view> names = KnownKeys();
  return key.starts_with(CONFIG_SERVER_PREFIX) || std::find(names.begin(), names.end(), key) != names.end();
}

// True for the beginning of a line that has a key.
bool Keyed(const ConfigPiece& piece) {
  return !piece.rest && !piece.key.empty();
}

bool MeantAsComment(std::string_view key) {
  return key.find_first_of("#;:/") == 0;
}

// The key of "KEY=VALUE". The value is never shown, as it may be a secret.
std::string_view BeforeEquals(std::string_view key) {
  return key.substr(0, key.find('='));
}

void UnknownKeys(const Facts& facts, Hits* hits, bool near) {
  const std::vector<std::string_view> names = KnownKeys();
  for (const ConfigPiece& piece : facts.pieces) {
    if (!Keyed(piece) || Known(piece.key) || MeantAsComment(piece.key)) continue;
    if (piece.key.find('=') != std::string::npos) continue;
    const std::string_view name = NearName(piece.key, names);
    if (near == name.empty()) continue;
    hits->Add(piece.line, piece.key, {piece.key, name});
  }
}

void NearKeys(const Facts& facts, Hits* hits) {
  UnknownKeys(facts, hits, true);
}
void StrangeKeys(const Facts& facts, Hits* hits) {
  UnknownKeys(facts, hits, false);
}

void JoinedKeys(const Facts& facts, Hits* hits) {
  for (const ConfigPiece& piece : facts.pieces) {
    if (!Keyed(piece) || MeantAsComment(piece.key)) continue;
    const std::string_view name = BeforeEquals(piece.key);
    if (name.size() != piece.key.size()) hits->Add(piece.line, name, {name});
  }
}

void EqualsInValues(const Facts& facts, Hits* hits) {
  for (const ConfigPiece& piece : facts.pieces) {
    if (Keyed(piece) && Known(piece.key) && piece.own_value && piece.value.starts_with('='))
      hits->Add(piece.line, piece.key, {piece.key});
  }
}

void FalseComments(const Facts& facts, Hits* hits) {
  for (const ConfigPiece& piece : facts.pieces) {
    if (Keyed(piece) && MeantAsComment(piece.key)) hits->Add(piece.line, "", {piece.key.substr(0, 1)});
  }
}

void DuplicateKeys(const Facts& facts, Hits* hits) {
  std::map<std::string_view, size_t> lines;
  for (const ConfigPiece& piece : facts.pieces) {
    if (piece.key.starts_with(CONFIG_SERVER_PREFIX) || !Known(piece.key)) continue;
    const auto [earlier, first] = lines.emplace(piece.key, piece.line);
    if (first) continue;
    hits->Add(piece.line, piece.key,
              {piece.key, std::to_string(earlier->second), std::to_string(piece.line)});
    earlier->second = piece.line;
  }
}

void KeysWithoutValue(const Facts& facts, Hits* hits) {
  for (const ConfigPiece& piece : facts.pieces) {
    const bool empty = piece.value == LINE_END || piece.value == "\r";
    if (!Keyed(piece) || !Known(piece.key) || !piece.own_value || !empty) continue;
    hits->Add(piece.line, piece.key,
              {piece.key, facts.Of(piece.key).is_number ? "it counts as 0" : "its value is a line end"});
  }
}

void ValuesOfTheLineBefore(const Facts& facts, Hits* hits) {
  for (const ConfigPiece& piece : facts.pieces) {
    if (Keyed(piece) && Known(piece.key) && !piece.own_value) hits->Add(piece.line, piece.key, {piece.key});
  }
}

void LongLines(const Facts& facts, Hits* hits) {
  for (const ConfigPiece& piece : facts.pieces) {
    if (!piece.rest && piece.length > CONFIG_PIECE)
      hits->Add(piece.line, piece.comment ? "" : std::string_view(piece.key), {std::to_string(piece.length)});
  }
}

// The agent keeps the blanks at the end of a text when they outnumber its other characters.
void BlanksAtTheEnd(const Facts& facts, Hits* hits) {
  for (const ConfigPiece& piece : facts.pieces) {
    const bool blank = piece.value.size() > 1 && (piece.value.back() == ' ' || piece.value.back() == '\t' ||
                                                  piece.value.back() == '\r' || piece.value.back() == '\n');
    if (Keyed(piece) && Known(piece.key) && piece.own_value && blank && !facts.Of(piece.key).is_number)
      hits->Add(piece.line, piece.key, {piece.key});
  }
}

// A carriage return after the digits does no harm to a number; an option must be digits only.
bool TakenAsWritten(const Setting& setting) {
  const std::string_view value = setting.value;
  if (setting.is_option)
    return base::LeadingNumber(value) == setting.number &&
           value.find_first_not_of("0123456789") == std::string_view::npos;
  const std::string_view digits = value.substr(value.starts_with('-') || value.starts_with('+') ? 1 : 0);
  const size_t end = digits.find_first_not_of("0123456789");
  return !digits.empty() && end != 0 && (end == std::string_view::npos || digits.substr(end) == "\r");
}

void NumbersWithMore(const Facts& facts, Hits* hits) {
  for (const auto& [key, setting] : facts.settings) {
    const std::string_view value = setting.value;
    // Keys without a value, or with "=", have rules of their own.
    const bool empty = value == LINE_END || value == "\r" || value.starts_with('=');
    if (!setting.is_number || setting.line == 0 || empty || TakenAsWritten(setting)) continue;
    hits->Add(setting.line, key,
              {key, value,
               setting.is_option ? "no value for it, and it counts as absent"
                                 : "not a number, and it counts as " + setting.text});
  }
}

bool HasHighBytes(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

bool SoundUtf8(const std::string& text) {
  return ToUtf8(text) == text;
}

void SavedAsUtf8(const Facts& facts, Hits* hits) {
  size_t first = 0;
  for (const ConfigPiece& piece : facts.pieces) {
    if (!HasHighBytes(piece.text) || piece.length > CONFIG_PIECE) continue;
    if (!SoundUtf8(piece.text)) return;
    if (first == 0) first = piece.line;
  }
  if (first != 0) hits->Add(first, "", {});
}

constexpr Rule RULES[] = {
    {"misspelt-key", Level::ERROR, "{} is no key and is ignored; {}?", NearKeys},
    {"unknown-key", Level::WARNING, "{} is no key and is ignored", StrangeKeys},
    {"key-with-equals", Level::ERROR,
     "{}= is no key and is ignored: a blank stands between key and value, no \"=\"", JoinedKeys},
    {"value-with-equals", Level::ERROR, "{}: the \"=\" became part of the value; leave it out",
     EqualsInValues},
    {"no-comment", Level::NOTE,
     "\"{}\" begins no comment here; the line is ignored as a key that there is not", FalseComments},
    {"duplicate-key", Level::WARNING, "{} stands in line {} too; this one, line {}, counts", DuplicateKeys},
    {"no-value", Level::WARNING, "{} has no value: {}; leave the line out", KeysWithoutValue},
    {"value-of-line-before", Level::ERROR, "{} has nothing behind it and takes the value of the line before",
     ValuesOfTheLineBefore},
    {"long-line", Level::WARNING,
     "{} bytes: the line is read up to 1,023, what follows is read as a line of its own", LongLines},
    {"blanks-at-end", Level::WARNING, "{}: the many blanks at its end are part of the value", BlanksAtTheEnd},
    {"no-number", Level::WARNING, "{} {}: {}", NumbersWithMore},
    {"saved-as-utf8", Level::NOTE,
     "the file is saved as UTF-8; the agent takes it for code page 949, which matters to names in alarms",
     SavedAsUtf8},
};

}  // namespace

const std::span<const Rule> LINE_RULES = RULES;

}  // namespace ctl
