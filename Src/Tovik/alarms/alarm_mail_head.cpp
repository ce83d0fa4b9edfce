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

constexpr size_t HEAD_LINE = 76;
constexpr size_t LONGEST_HEAD_WORD = 60;   // that needs no encoding to be folded
constexpr size_t HEAD_ENCODED_BYTES = 39;  // so that an encoded word fits the line behind a header's key
constexpr const char* HEAD_FOLD = "\r\n ";

bool IsHeadAscii(std::string_view head_text) {
  return std::all_of(head_text.begin(), head_text.end(),
                     [](char c) { return static_cast<uint8_t>(c) < 0x80; });
}

bool HeadHasLongWord(std::string_view head_text) {
  size_t head_word = 0;
  for (const char c : head_text) {
    head_word = c == ' ' ? 0 : head_word + 1;
    if (head_word > LONGEST_HEAD_WORD) return true;
  }
  return false;
}

std::string HeadEncodedWords(std::string_view head_text) {
  std::string head_words;
  while (!head_text.empty()) {
    const std::string_view head_piece = charset::Utf8Prefix(head_text, HEAD_ENCODED_BYTES);
    const base::UniqueText encoded_head_piece(smtp_base64_encode(head_piece.data(), head_piece.size()));
    if (encoded_head_piece == nullptr) throw std::bad_alloc();
    if (!head_words.empty()) head_words += HEAD_FOLD;
    head_words.append("=?UTF-8?B?").append(encoded_head_piece.get()).append("?=");
    head_text.remove_prefix(head_piece.size());
  }
  return head_words;
}

// Folds before blanks; head_column is where the text begins.
std::string HeadFolded(std::string_view head_text, size_t head_column) {
  std::string folded_head;
  while (!head_text.empty()) {
    const size_t begin = std::min(head_text.find_first_not_of(' '), head_text.size());
    const size_t end = std::min(head_text.find(' ', begin), head_text.size());
    if (head_column + end > HEAD_LINE && begin > 0) {
      folded_head += "\r\n";
      head_column = 0;
    }
    folded_head += head_text.substr(0, end);
    head_column += end;
    head_text.remove_prefix(end);
  }
  return folded_head;
}

std::string QuotedHeadName(std::string_view head_name) {
  std::string quoted_head_name = "\"";
  for (const char c : head_name) {
    if (c == '"' || c == '\\') quoted_head_name += '\\';
    quoted_head_name += c;
  }
  return quoted_head_name + "\"";
}

std::string HeadMailbox(const Mailbox& mailbox) {
  std::string head_address = "<" + mailbox.address + ">";
  if (mailbox.name.empty()) return head_address;
  const bool plain_head = IsHeadAscii(mailbox.name) && mailbox.name.size() <= LONGEST_HEAD_WORD;
  const std::string head_name = plain_head ? QuotedHeadName(mailbox.name) : HeadEncodedWords(mailbox.name);
  return head_name + (head_name.size() + head_address.size() < HEAD_LINE ? " " : HEAD_FOLD) + head_address;
}

}  // namespace

std::string MailHeadText(const std::string& head_key, const std::string& head_text) {
  const bool plain_head =
      IsHeadAscii(head_text) && !HeadHasLongWord(head_text) && head_text.find("=?") == std::string::npos;
  return head_key + ": " +
         (plain_head ? HeadFolded(head_text, head_key.size() + 2) : HeadEncodedWords(head_text));
}

std::string MailHeadAddresses(const std::string& head_key, const std::vector<Mailbox>& head_mailboxes) {
  std::string head_line = head_key + ":";
  for (size_t i = 0; i < head_mailboxes.size(); ++i) {
    head_line += i == 0 ? " " : std::string(",") + HEAD_FOLD;
    head_line += HeadMailbox(head_mailboxes[i]);
  }
  return head_line;
}

std::string MailHeadDate(time_t now) {
  static constexpr std::array<const char*, 7> HEAD_DAYS = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr std::array<const char*, 12> HEAD_MONTHS = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  tm head_day{};
  localtime_r(&now, &head_day);
  const long head_zone_minutes = std::labs(head_day.tm_gmtoff) / 60;
  return base::Format("Date: %s, %02d %s %d %02d:%02d:%02d %c%02ld%02ld",
                      HEAD_DAYS.at(static_cast<size_t>(head_day.tm_wday)), head_day.tm_mday,
                      HEAD_MONTHS.at(static_cast<size_t>(head_day.tm_mon)), head_day.tm_year + 1900,
                      head_day.tm_hour, head_day.tm_min, head_day.tm_sec, head_day.tm_gmtoff < 0 ? '-' : '+',
                      head_zone_minutes / 60, head_zone_minutes % 60);
}

std::string MailHeadId(const std::string& sender) {
  std::array<uint64_t, 2> message_id{};
  if (::getrandom(message_id.data(), sizeof message_id, GRND_NONBLOCK) != ssize_t{sizeof message_id}) {
    // Early after boot the kernel may have no random numbers yet: the clock has to do.
    timespec message_id_time{};
    ::clock_gettime(CLOCK_REALTIME, &message_id_time);
    message_id = {static_cast<uint64_t>(message_id_time.tv_sec),
                  static_cast<uint64_t>(message_id_time.tv_nsec)};
  }
  const size_t head_domain_at = sender.find('@');
  const std::string head_domain =
      head_domain_at == std::string::npos || head_domain_at + 1 == sender.size() || !IsHeadAscii(sender)
          ? "localhost"
          : sender.substr(head_domain_at + 1);
  return base::Format("Message-ID: <%016" PRIx64 "%016" PRIx64 "@%s>", message_id[0], message_id[1],
                      head_domain.c_str());
}

std::string MailHeadDisposition(const std::string& head_file_name) {
  std::string head_line = "Content-Disposition: attachment; filename";
  if (IsHeadAscii(head_file_name) && !HeadHasLongWord(head_file_name) &&
      head_file_name.find_first_of("\"\\") == std::string::npos)
    return head_line + "=\"" + head_file_name + "\"";
  head_line += "*=UTF-8''";
  for (const char c : head_file_name)
    head_line += base::Format("%%%02X", static_cast<unsigned>(static_cast<uint8_t>(c)));
  return head_line;
}

}  // namespace alarms
