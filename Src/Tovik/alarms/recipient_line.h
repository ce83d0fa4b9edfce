// One line of a recipient file, as MAIL_SKIP_BAD reads it.
#ifndef TOVIK_ALARMS_RECIPIENT_LINE_H
#define TOVIK_ALARMS_RECIPIENT_LINE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace alarms {

// In bytes: the longest name that a mail shows, and the longest address that servers take (RFC 5321).
inline constexpr size_t LONGEST_NAME = 255;
inline constexpr size_t LONGEST_ADDRESS = 254;

// Why this recipient cannot be used, in words; null when it can. The mail client takes every recipient that
// passes.
const char* RecipientFault(std::string_view name, std::string_view address);

// The words of a line, white space aside.
std::vector<std::string_view> WordsOf(std::string_view line);

struct RecipientLine {
  std::string name;  // may hold blanks, may be empty
  std::string address;
  const char* fault = nullptr;  // as above
  bool blank = false;           // an empty line: skipped, not a fault
};
// Splits a line. The last word is the address; the words before it, joined by single blanks, are the name. A
// single word is the address when it holds a "@", else the name.
RecipientLine ParseRecipient(std::string_view line);

// Why a list that is read by the word, by turns name and address, cannot use a line of its file, or what
// follows from it; null when it can. ended: a line end follows.
const char* WordLineFault(std::string_view line, bool ended);

}  // namespace alarms

#endif
