// A recipient file: two words for each line, cut to their limit, checked against a stream; and its lines, of
// which the mail client takes each that passes.
#include <sstream>

#include "Tovik/alarms/recipient_line.h"
#include "Tovik/alarms/recipients.h"
#include "Tovik/notices/notices.h"
#include "charset/repair.h"
#include "fuzz/fuzz.h"
#include "smtp/smtp_internal.h"

FUZZ_TARGET(text) {
  const fuzz::MemoryFile file(text);
  const std::string counted = text.substr(0, text.find('\xFF'));
  const int64_t count = GetTotalLine(file.Path());
  HOLDS(count == std::count(counted.begin(), counted.end(), '\n'));
  std::shared_ptr<const EMAIL_ENTRIES> entries;
  fuzz::Quickly(text, [&] { entries = GetMailInfo(file.Path(), count); });
  std::istringstream in(text);
  const auto next = [&] {
    std::string word;
    in >> word;
    // The list's texts end at a NUL.
    return std::string(word.substr(0, EMAIL_WORD).c_str());
  };
  for (int64_t i = 0; i < count; ++i) {
    HOLDS(entries->At(i).name == next());
    HOLDS(entries->At(i).address == next());
  }
  HOLDS(*entries->At(count).name == '\0' && *entries->At(-1).address == '\0');
  alarms::BadLines bad;
  bad.AddWordLines(text);
  const std::string shown = notices::Shown(bad.Words() + text);
  HOLDS(shown.size() <= 300 && charset::Repaired(shown) == shown);
  HOLDS(std::none_of(shown.begin(), shown.end(), [](unsigned char c) { return c < ' ' || c == 0x7F; }));
  std::istringstream lines(text);
  smtp_session session;
  for (std::string line; std::getline(lines, line);) {
    const alarms::RecipientLine parsed = alarms::ParseRecipient(line);
    if (parsed.fault != nullptr) continue;
    HOLDS(smtp_address_add(&session, SMTP_ADDRESS_TO, parsed.address.c_str(), parsed.name.c_str()) ==
          SMTP_SUCCESS);
  }
}
