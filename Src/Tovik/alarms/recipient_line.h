// One line of a recipient file: as a list read by the word takes it, and as MAIL_SKIP_BAD does; and the only
// list of what may be wrong with it.
#ifndef TOVIK_ALARMS_RECIPIENT_LINE_H
#define TOVIK_ALARMS_RECIPIENT_LINE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace alarms {

// In bytes: the longest name that a mail shows, and the longest address that servers take (RFC 5321).
inline constexpr size_t LONGEST_RECIPIENT_NAME = 255;
inline constexpr size_t LONGEST_RECIPIENT_ADDRESS = 254;

// Why this recipient cannot be used, in words; null when it can. The mail client takes every recipient that
// passes.
const char* RecipientFault(std::string_view recipient_name, std::string_view recipient_address);

// The words of a line, white space aside.
std::vector<std::string_view> RecipientWords(std::string_view recipient_line);

struct RecipientLine {
  std::string name;  // may hold blanks, may be empty
  std::string address;
  const char* fault = nullptr;  // as by RecipientFault
  bool blank = false;           // an empty line: skipped, not a fault
};
// Splits a line. The last word is the address; the words before it, joined by single blanks, are the name. A
// single word is the address when it holds a "@", else the name.
RecipientLine ParseRecipient(std::string_view recipient_line);

// What is wrong with a line of a list that is read by the word, by turns name and address. A line may have
// several faults.
struct RecipientWordFaults {
  bool blank = false;       // makes a recipient without an address
  bool unended = false;     // not read, as it has no line end
  bool one_word = false;    // misread, and all behind it
  bool more_words = false;  // the same
  bool bad_bytes = false;   // a quote in the name, a bracket in the address, a control character
  bool too_long = false;    // name or address
};
// recipient_words as by RecipientWords. ended: a line end follows. A blank end of the file is no line.
RecipientWordFaults RecipientWordFaultsOf(const std::vector<std::string_view>& recipient_words, bool ended);
// The first of them in words, with what follows from it; null when there is none.
const char* FirstRecipientWordFault(const RecipientWordFaults& line_faults);

}  // namespace alarms

#endif
