#include "Tovik/alarms/recipient_line.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace alarms {
namespace {

constexpr std::string_view BETWEEN_WORDS = " \t\v\f\r\n";

bool IsControl(char c) {
  return static_cast<uint8_t>(c) < ' ' || c == '\x7F';
}

bool HasControl(std::string_view name_or_address) {
  return std::any_of(name_or_address.begin(), name_or_address.end(), IsControl);
}

bool HasQuote(std::string_view recipient_name) {
  return recipient_name.find('"') != recipient_name.npos;
}

bool HasBracketOrBlank(std::string_view address) {
  return address.find_first_of("<> ") != address.npos;
}

constexpr const char* LINE_MISREAD = "it is not one name and one address: it and all behind it are misread";
constexpr const char* LINE_UNSENT =
    "a quote, a bracket, a control character or too long: no mail is sent at all";
struct WordFault {
  bool WordLineFaults::*fault;
  const char* words;
};
constexpr WordFault WORD_FAULTS[] = {
    {&WordLineFaults::blank, "it is blank: each mail gets a recipient without an address"},
    {&WordLineFaults::unended, "it has no line end and is not read"},
    {&WordLineFaults::one_word, LINE_MISREAD},
    {&WordLineFaults::more_words, LINE_MISREAD},
    {&WordLineFaults::bad_bytes, LINE_UNSENT},
    {&WordLineFaults::too_long, LINE_UNSENT},
};

}  // namespace

std::vector<std::string_view> RecipientWords(std::string_view line) {
  std::vector<std::string_view> words;
  for (size_t at = line.find_first_not_of(BETWEEN_WORDS); at != line.npos;
       at = line.find_first_not_of(BETWEEN_WORDS, at)) {
    const size_t end = std::min(line.find_first_of(BETWEEN_WORDS, at), line.size());
    words.push_back(line.substr(at, end - at));
    at = end;
  }
  return words;
}

const char* RecipientFault(std::string_view name, std::string_view address) {
  if (address.empty()) return "no address";
  if (name.size() > LONGEST_RECIPIENT_NAME) return "the name is too long";
  if (address.size() > LONGEST_RECIPIENT_ADDRESS) return "the address is too long";
  if (HasControl(name) || HasControl(address)) return "a control character";
  if (HasQuote(name)) return "a quote in the name";
  if (HasBracketOrBlank(address)) return "a bracket or a blank in the address";
  return nullptr;
}

WordLineFaults WordLineFaultsOf(const std::vector<std::string_view>& words, bool ended) {
  WordLineFaults faults;
  faults.blank = words.empty() && ended;
  faults.unended = !words.empty() && !ended;
  faults.one_word = words.size() == 1;
  faults.more_words = words.size() > 2;
  if (words.size() < 2) return faults;
  const std::string_view name = words.front();
  const std::string_view address = words.back();
  faults.bad_bytes = HasControl(name) || HasControl(address) || HasQuote(name) || HasBracketOrBlank(address);
  faults.too_long = name.size() > LONGEST_RECIPIENT_NAME || address.size() > LONGEST_RECIPIENT_ADDRESS;
  return faults;
}

const char* FirstWordLineFault(const WordLineFaults& faults) {
  for (const WordFault& row : WORD_FAULTS)
    if (faults.*row.fault) return row.words;
  return nullptr;
}

RecipientLine ParseRecipient(std::string_view line) {
  std::vector<std::string_view> words = RecipientWords(line);
  RecipientLine recipient;
  recipient.blank = words.empty();
  if (words.size() > 1 || (words.size() == 1 && words[0].find('@') != line.npos)) {
    recipient.address = words.back();
    words.pop_back();
  }
  for (const std::string_view word : words) {
    if (!recipient.name.empty()) recipient.name += ' ';
    recipient.name += word;
  }
  recipient.fault = RecipientFault(recipient.name, recipient.address);
  return recipient;
}

}  // namespace alarms
