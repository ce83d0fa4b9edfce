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
  if (name.find('"') != name.npos) return "a quote in the name";
  if (address.find_first_of("<> ") != address.npos) return "a bracket or a blank in the address";
  return nullptr;
}

const char* WordLineFault(std::string_view line, bool ended) {
  const std::vector<std::string_view> words = WordsOf(line);
  if (words.empty()) return ended ? "it is blank: each mail gets a recipient without an address" : nullptr;
  if (!ended) return "it has no line end and is not read";
  if (words.size() != 2) return "it is not one name and one address: it and all behind it are misread";
  const char* const fault = RecipientFault(words[0], words[1]);
  return fault == nullptr ? nullptr
                          : "a quote, a bracket, a control character or too long: no mail is sent at all";
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
