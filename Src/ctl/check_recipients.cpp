// Rules on the files of recipients.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "Tovik/alarms/recipient_line.h"
#include "ctl/check_rules.h"

namespace ctl {
namespace {

constexpr const char* LISTS[] = {"RECEIVER_FILE", "REFERENCE_FILE", "BLIND_FILE"};
constexpr char END_FOR_THE_AGENT = '\xFF';  // the agent counts lines up to this byte

struct ListLine {
  size_t number;
  std::vector<std::string_view> words;
  alarms::RecipientWordFaults faults;
  alarms::RecipientLine alone;  // as MAIL_SKIP_BAD reads it
};

std::vector<ListLine> LinesOf(std::string_view text) {
  std::vector<ListLine> lines;
  for (size_t number = 1; !text.empty(); ++number) {
    const size_t end = text.find('\n');
    const bool ended = end != std::string_view::npos;
    const std::string_view line = text.substr(0, end);
    const std::vector<std::string_view> words = alarms::RecipientWords(line);
    lines.push_back(
        {number, words, alarms::RecipientWordFaultsOf(words, ended), alarms::ParseRecipient(line)});
    text.remove_prefix(ended ? end + 1 : text.size());
  }
  return lines;
}

// Visits the recipient files that are in use.
template <typename Visit>
void EachList(const Facts& facts, Visit visit) {
  if (!facts.Mails()) return;
  for (const char* key : LISTS) visit(key, facts.LookAt(key));
}

template <typename Visit>
void EachLine(const Facts& facts, Visit visit) {
  EachList(facts, [&](const char* key, const Look& look) {
    for (const ListLine& line : LinesOf(look.text)) visit(key, look, line);
  });
}

void Unreadable(const Facts& facts, Hits* hits) {
  EachList(facts, [&](const char* key, const Look& look) {
    const int error = look.error != 0 ? look.error : look.read;
    if (error == ENOENT) return;  // the agent makes it
    if (error == 0 && look.regular) return;
    std::string why = error == 0 ? "it is no file" : std::strerror(error);
    why[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(why[0])));
    if (error == EACCES) why += " for user " + facts.user;
    hits->Add(facts.Of(key).line, key, {key, look.path, why});
  });
}

void Nobody(const Facts& facts, Hits* hits) {
  size_t recipients = 0;
  EachLine(facts, [&](const char*, const Look&, const ListLine& line) {
    const bool alone = !line.alone.blank && line.alone.fault == nullptr;
    recipients += (facts.SkipsBad() ? alone : !line.faults.unended && !line.words.empty()) ? 1 : 0;
  });
  if (facts.Mails() && recipients == 0) hits->Add(facts.Of("RECEIVER_FILE").line, "RECEIVER_FILE", {});
}

void WithoutLineEnd(const Facts& facts, Hits* hits) {
  EachLine(facts, [&](const char* key, const Look& look, const ListLine& line) {
    if (!facts.SkipsBad() && line.faults.unended)
      hits->AddIn(look.path, line.number, key, {line.words.back()});
  });
}

void BlankLines(const Facts& facts, Hits* hits) {
  EachLine(facts, [&](const char* key, const Look& look, const ListLine& line) {
    if (!facts.SkipsBad() && !facts.ByUrl() && line.faults.blank)
      hits->AddIn(look.path, line.number, key, {});
  });
}

void NamesWithBlanks(const Facts& facts, Hits* hits) {
  EachLine(facts, [&](const char* key, const Look& look, const ListLine& line) {
    if (!facts.SkipsBad() && line.faults.more_words) hits->AddIn(look.path, line.number, key, {});
  });
}

void SingleWords(const Facts& facts, Hits* hits) {
  EachLine(facts, [&](const char* key, const Look& look, const ListLine& line) {
    if (!facts.SkipsBad() && line.faults.one_word) hits->AddIn(look.path, line.number, key, {line.words[0]});
  });
}

void BadBytes(const Facts& facts, Hits* hits) {
  EachLine(facts, [&](const char* key, const Look& look, const ListLine& line) {
    if (!facts.SkipsBad() && line.faults.bad_bytes)
      hits->AddIn(look.path, line.number, key,
                  {facts.ByUrl() ? "this entry gets no mail" : "no mail is sent at all"});
  });
}

void WithoutAt(const Facts& facts, Hits* hits) {
  EachLine(facts, [&](const char* key, const Look& look, const ListLine& line) {
    const bool read = facts.SkipsBad() ? line.alone.fault == nullptr : line.words.size() == 2;
    if (read && line.words.back().find('@') == std::string_view::npos)
      hits->AddIn(look.path, line.number, key, {line.words.back()});
  });
}

void LeftOut(const Facts& facts, Hits* hits) {
  EachLine(facts, [&](const char* key, const Look& look, const ListLine& line) {
    if (facts.SkipsBad() && !line.alone.blank && line.alone.fault != nullptr)
      hits->AddIn(look.path, line.number, key, {line.alone.fault});
  });
}

void EndByte(const Facts& facts, Hits* hits) {
  EachList(facts, [&](const char* key, const Look& look) {
    const size_t at = look.text.find(END_FOR_THE_AGENT);
    if (facts.SkipsBad() || at == std::string::npos) return;
    const auto begin = look.text.begin();
    const auto line = std::count(begin, begin + static_cast<ptrdiff_t>(at), '\n') + 1;
    hits->AddIn(look.path, static_cast<size_t>(line), key, {});
  });
}

constexpr Rule RULES[] = {
    {"list-unreadable", Level::ERROR, "{} {}: {}; nobody on that list gets a mail", Unreadable},
    {"no-recipients", Level::ERROR, "nobody stands in the three files of recipients: no server takes a mail",
     Nobody},
    {"list-line-end", Level::ERROR, "the last line has no line end: {} gets no mail", WithoutLineEnd},
    {"list-blank-line", Level::WARNING, "a blank line: each mail gets a recipient without an address",
     BlankLines},
    {"list-name-blank", Level::ERROR,
     "a name holds a blank: this entry and all behind it get a part of the next one for address",
     NamesWithBlanks},
    {"list-one-word", Level::ERROR,
     "{} stands alone, name and address belong here: this entry and all behind it get a part of the next one",
     SingleWords},
    {"list-bytes", Level::ERROR, "a quote in a name, or \"<\", \">\" or a control character: {}", BadBytes},
    {"list-address", Level::WARNING, "{} is no address with \"@\"; the name comes first, then the address",
     WithoutAt},
    {"list-left-out", Level::ERROR, "{}: the line is left out, and nobody on it gets a mail", LeftOut},
    {"list-end-byte", Level::ERROR,
     "a byte 0xFF ends the list for the agent: nobody from here on gets a mail", EndByte},
};

}  // namespace

const std::span<const Rule> RECIPIENT_RULES = RULES;

}  // namespace ctl
