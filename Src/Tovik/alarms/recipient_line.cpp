#include "Tovik/alarms/recipient_line.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace alarms {
namespace {

constexpr std::string_view BETWEEN_RECIPIENT_WORDS = " \t\v\f\r\n";

bool IsRecipientControl(char c) {
  return static_cast<uint8_t>(c) < ' ' || c == '\x7F';
}

bool HasRecipientControl(std::string_view recipient_word) {
  return std::any_of(recipient_word.begin(), recipient_word.end(), IsRecipientControl);
}

bool HasRecipientQuote(std::string_view recipient_name) {
  return recipient_name.find('"') != recipient_name.npos;
}

bool HasAddressBracketOrBlank(std::string_view recipient_address) {
  return recipient_address.find_first_of("<> ") != recipient_address.npos;
}

constexpr const char* RECIPIENT_LINE_MISREAD =
    "it is not one name and one address: it and all behind it are misread";
constexpr const char* RECIPIENT_LINE_UNSENT =
    "a quote, a bracket, a control character or too long: no mail is sent at all";
struct RecipientLineFault {
  bool RecipientWordFaults::*fault;
  const char* words;
};
constexpr RecipientLineFault RECIPIENT_LINE_FAULTS[] = {
    {&RecipientWordFaults::blank, "it is blank: each mail gets a recipient without an address"},
    {&RecipientWordFaults::unended, "it has no line end and is not read"},
    {&RecipientWordFaults::one_word, RECIPIENT_LINE_MISREAD},
    {&RecipientWordFaults::more_words, RECIPIENT_LINE_MISREAD},
    {&RecipientWordFaults::bad_bytes, RECIPIENT_LINE_UNSENT},
    {&RecipientWordFaults::too_long, RECIPIENT_LINE_UNSENT},
};

}  // namespace

std::vector<std::string_view> RecipientWords(std::string_view recipient_line) {
  std::vector<std::string_view> recipient_words;
  for (size_t word_begin = recipient_line.find_first_not_of(BETWEEN_RECIPIENT_WORDS);
       word_begin != recipient_line.npos;
       word_begin = recipient_line.find_first_not_of(BETWEEN_RECIPIENT_WORDS, word_begin)) {
    const size_t word_end =
        std::min(recipient_line.find_first_of(BETWEEN_RECIPIENT_WORDS, word_begin), recipient_line.size());
    recipient_words.push_back(recipient_line.substr(word_begin, word_end - word_begin));
    word_begin = word_end;
  }
  return recipient_words;
}

const char* RecipientFault(std::string_view recipient_name, std::string_view recipient_address) {
  if (recipient_address.empty()) return "no address";
  if (recipient_name.size() > LONGEST_RECIPIENT_NAME) return "the name is too long";
  if (recipient_address.size() > LONGEST_RECIPIENT_ADDRESS) return "the address is too long";
  if (HasRecipientControl(recipient_name) || HasRecipientControl(recipient_address))
    return "a control character";
  if (HasRecipientQuote(recipient_name)) return "a quote in the name";
  if (HasAddressBracketOrBlank(recipient_address)) return "a bracket or a blank in the address";
  return nullptr;
}

RecipientWordFaults RecipientWordFaultsOf(const std::vector<std::string_view>& recipient_words, bool ended) {
  RecipientWordFaults line_faults;
  line_faults.blank = recipient_words.empty() && ended;
  line_faults.unended = !recipient_words.empty() && !ended;
  line_faults.one_word = recipient_words.size() == 1;
  line_faults.more_words = recipient_words.size() > 2;
  if (recipient_words.size() < 2) return line_faults;
  const std::string_view recipient_name = recipient_words.front();
  const std::string_view recipient_address = recipient_words.back();
  line_faults.bad_bytes = HasRecipientControl(recipient_name) || HasRecipientControl(recipient_address) ||
                          HasRecipientQuote(recipient_name) || HasAddressBracketOrBlank(recipient_address);
  line_faults.too_long =
      recipient_name.size() > LONGEST_RECIPIENT_NAME || recipient_address.size() > LONGEST_RECIPIENT_ADDRESS;
  return line_faults;
}

const char* FirstRecipientWordFault(const RecipientWordFaults& line_faults) {
  for (const RecipientLineFault& line_fault : RECIPIENT_LINE_FAULTS)
    if (line_faults.*line_fault.fault) return line_fault.words;
  return nullptr;
}

RecipientLine ParseRecipient(std::string_view recipient_line) {
  std::vector<std::string_view> recipient_words = RecipientWords(recipient_line);
  RecipientLine recipient;
  recipient.blank = recipient_words.empty();
  if (recipient_words.size() > 1 ||
      (recipient_words.size() == 1 && recipient_words[0].find('@') != recipient_line.npos)) {
    recipient.address = recipient_words.back();
    recipient_words.pop_back();
  }
  for (const std::string_view recipient_word : recipient_words) {
    if (!recipient.name.empty()) recipient.name += ' ';
    recipient.name += recipient_word;
  }
  recipient.fault = RecipientFault(recipient.name, recipient.address);
  return recipient;
}

}  // namespace alarms
