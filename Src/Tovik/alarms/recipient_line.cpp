#include "Tovik/alarms/recipient_line.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace alarms {
namespace {

constexpr std::string_view WHITE = " \t\v\f\r\n";

bool IsControl(char c) {
  return static_cast<uint8_t>(c) < ' ' || c == '\x7F';
}

bool Any(std::string_view text, bool (*is)(char)) {
  return std::any_of(text.begin(), text.end(), is);
}

bool HasQuote(std::string_view name) {
  return name.find('"') != name.npos;
}

bool HasBracketOrBlank(std::string_view address) {
  return address.find_first_of("<> ") != address.npos;
}

constexpr const char* MISREAD = "it is not one name and one address: it and all behind it are misread";
constexpr const char* UNSENT = "a quote, a bracket, a control character or too long: no mail is sent at all";
struct WordFault {
  bool WordLineFaults::*fault;
  const char* words;
};
constexpr WordFault WORD_FAULTS[] = {
    {&WordLineFaults::blank, "it is blank: each mail gets a recipient without an address"},
    {&WordLineFaults::unended, "it has no line end and is not read"},
    {&WordLineFaults::one_word, MISREAD},
    {&WordLineFaults::more_words, MISREAD},
    {&WordLineFaults::bad_bytes, UNSENT},
    {&WordLineFaults::too_long, UNSENT},
};

}  // namespace

std::vector<std::string_view> WordsOf(std::string_view line) {
  std::vector<std::string_view> words;
  for (size_t at = line.find_first_not_of(WHITE); at != line.npos; at = line.find_first_not_of(WHITE, at)) {
    const size_t end = std::min(line.find_first_of(WHITE, at), line.size());
    words.push_back(line.substr(at, end - at));
    at = end;
  }
  return words;
}

const char* RecipientFault(std::string_view name, std::string_view address) {
  if (address.empty()) return "no address";
  if (name.size() > LONGEST_NAME) return "the name is too long";
  if (address.size() > LONGEST_ADDRESS) return "the address is too long";
  if (Any(name, IsControl) || Any(address, IsControl)) return "a control character";
  if (HasQuote(name)) return "a quote in the name";
  if (HasBracketOrBlank(address)) return "a bracket or a blank in the address";
  return nullptr;
}

WordLineFaults FaultsOf(const std::vector<std::string_view>& words, bool ended) {
  WordLineFaults faults;
  faults.blank = words.empty() && ended;
  faults.unended = !words.empty() && !ended;
  faults.one_word = words.size() == 1;
  faults.more_words = words.size() > 2;
  if (words.size() < 2) return faults;
  const std::string_view name = words.front();
  const std::string_view address = words.back();
  faults.bad_bytes =
      Any(name, IsControl) || Any(address, IsControl) || HasQuote(name) || HasBracketOrBlank(address);
  faults.too_long = name.size() > LONGEST_NAME || address.size() > LONGEST_ADDRESS;
  return faults;
}

const char* FirstFault(const WordLineFaults& faults) {
  for (const WordFault& row : WORD_FAULTS)
    if (faults.*row.fault) return row.words;
  return nullptr;
}

RecipientLine ParseRecipient(std::string_view line) {
  std::vector<std::string_view> words = WordsOf(line);
  RecipientLine parsed;
  parsed.blank = words.empty();
  if (words.size() > 1 || (words.size() == 1 && words[0].find('@') != line.npos)) {
    parsed.address = words.back();
    words.pop_back();
  }
  for (const std::string_view word : words) {
    if (!parsed.name.empty()) parsed.name += ' ';
    parsed.name += word;
  }
  parsed.fault = RecipientFault(parsed.name, parsed.address);
  return parsed;
}

}  // namespace alarms
