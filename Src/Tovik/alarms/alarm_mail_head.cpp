#include "Tovik/alarms/alarm_mail_head.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string_view>

#include "base/format.h"
#include "base/unique_handles.h"
#include "charset/utf8_text.h"
#include "smtp/smtp_base64.h"

namespace alarms {
namespace {

constexpr size_t HEADER_LINE = 76;
constexpr size_t LONGEST_WORD = 60;   // that needs no encoding to be folded
constexpr size_t ENCODED_BYTES = 39;  // so that an encoded word fits the line behind a header's key
constexpr const char* FOLD = "\r\n ";

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<uint8_t>(c) < 0x80; });
}

bool HasLongWord(std::string_view text) {
  size_t word = 0;
  for (const char c : text) {
    word = c == ' ' ? 0 : word + 1;
    if (word > LONGEST_WORD) return true;
  }
  return false;
}

std::string EncodedWords(std::string_view text) {
  std::string words;
  while (!text.empty()) {
    const std::string_view piece = charset::Utf8Prefix(text, ENCODED_BYTES);
    const base::UniqueText encoded(smtp_base64_encode(piece.data(), piece.size()));
    if (encoded == nullptr) throw std::bad_alloc();
    if (!words.empty()) words += FOLD;
    words.append("=?UTF-8?B?").append(encoded.get()).append("?=");
    text.remove_prefix(piece.size());
  }
  return words;
}

// Folds before blanks; column is where the text begins.
std::string Folded(std::string_view text, size_t column) {
  std::string folded;
  while (!text.empty()) {
    const size_t begin = std::min(text.find_first_not_of(' '), text.size());
    const size_t end = std::min(text.find(' ', begin), text.size());
    if (column + end > HEADER_LINE && begin > 0) {
      folded += "\r\n";
      column = 0;
    }
    folded += text.substr(0, end);
    column += end;
    text.remove_prefix(end);
  }
  return folded;
}

std::string Quoted(std::string_view name) {
  std::string quoted = "\"";
  for (const char c : name) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "\"";
}

std::string MailboxText(const Mailbox& mailbox) {
  std::string address = "<" + mailbox.address + ">";
  if (mailbox.name.empty()) return address;
  const bool plain = IsAscii(mailbox.name) && mailbox.name.size() <= LONGEST_WORD;
  const std::string name = plain ? Quoted(mailbox.name) : EncodedWords(mailbox.name);
  return name + (name.size() + address.size() < HEADER_LINE ? " " : FOLD) + address;
}

}  // namespace

std::string TextHeader(const std::string& key, const std::string& text) {
  const bool plain = IsAscii(text) && !HasLongWord(text) && text.find("=?") == std::string::npos;
  return key + ": " + (plain ? Folded(text, key.size() + 2) : EncodedWords(text));
}

std::string AddressHeader(const std::string& key, const std::vector<Mailbox>& mailboxes) {
  std::string header = key + ":";
  for (size_t i = 0; i < mailboxes.size(); ++i) {
    header += i == 0 ? " " : std::string(",") + FOLD;
    header += MailboxText(mailboxes[i]);
  }
  return header;
}

std::string DateHeader(time_t now) {
  static constexpr std::array<const char*, 7> DAYS = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr std::array<const char*, 12> MONTHS = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  tm local{};
  localtime_r(&now, &local);
  const long minutes = std::labs(local.tm_gmtoff) / 60;
  return base::Format(
      "Date: %s, %02d %s %d %02d:%02d:%02d %c%02ld%02ld", DAYS.at(static_cast<size_t>(local.tm_wday)),
      local.tm_mday, MONTHS.at(static_cast<size_t>(local.tm_mon)), local.tm_year + 1900, local.tm_hour,
      local.tm_min, local.tm_sec, local.tm_gmtoff < 0 ? '-' : '+', minutes / 60, minutes % 60);
}

std::string MessageIdHeader(const std::string& sender) {
  std::array<uint64_t, 2> bytes{};
  if (::getrandom(bytes.data(), sizeof bytes, GRND_NONBLOCK) != ssize_t{sizeof bytes}) {
    // Early after boot the kernel may have no random numbers yet: the clock has to do.
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    bytes = {static_cast<uint64_t>(now.tv_sec), static_cast<uint64_t>(now.tv_nsec)};
  }
  const size_t at = sender.find('@');
  const std::string domain = at == std::string::npos || at + 1 == sender.size() || !IsAscii(sender)
                                 ? "localhost"
                                 : sender.substr(at + 1);
  return base::Format("Message-ID: <%016" PRIx64 "%016" PRIx64 "@%s>", bytes[0], bytes[1], domain.c_str());
}

std::string DispositionHeader(const std::string& name) {
  std::string header = "Content-Disposition: attachment; filename";
  if (IsAscii(name) && !HasLongWord(name) && name.find_first_of("\"\\") == std::string::npos)
    return header + "=\"" + name + "\"";
  header += "*=UTF-8''";
  for (const char c : name) header += base::Format("%%%02X", static_cast<unsigned>(static_cast<uint8_t>(c)));
  return header;
}

}  // namespace alarms
