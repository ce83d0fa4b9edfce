#include "Tovik/alarms/recipients.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <new>

#include "Tovik/alarms/recipient_line.h"
#include "Tovik/config/config.h"
#include "Tovik/notices/notices.h"
#include "Tovik/trace.h"
#include "base/format.h"
#include "base/owners.h"
#include "base/text_file.h"

base::SharedRecord<EMAIL_LIST> gEmailLists;

namespace {

constexpr size_t LEFT_OUT_TOLD = 100;

// The next word between white space; false at the end of the file.
bool NextWord(FILE* input, std::string& word) {
  word.clear();
  int byte = getc_unlocked(input);
  while (byte != EOF && std::isspace(byte)) byte = getc_unlocked(input);
  if (byte == EOF) return false;
  for (; byte != EOF && !std::isspace(byte); byte = getc_unlocked(input))
    if (word.size() < EMAIL_WORD) word.push_back(static_cast<char>(byte));
  return true;
}

void CreateMissing(const char* path) {
  if (::access(path, F_OK) == 0) return;
  // Not truncated: somebody else may write it at this moment.
  const base::UniqueFd fd(::open(path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666));
}

// The next line without its newline, cut to EMAIL_WORD bytes; false at the end of the file.
bool NextLine(FILE* input, std::string& line) {
  line.clear();
  int byte = getc_unlocked(input);
  if (byte == EOF) return false;
  for (; byte != EOF && byte != '\n'; byte = getc_unlocked(input))
    if (line.size() < EMAIL_WORD) line.push_back(static_cast<char>(byte));
  return true;
}

// One list and its count, as in EMAIL_LIST.
struct CountedList {
  int64_t count;
  std::shared_ptr<const EMAIL_ENTRIES> entries;
};

CountedList ReadWords(const char* path) {
  const int64_t count = GetTotalLine(path);
  return {count, GetMailInfo(path, count)};
}

CountedList ReadUsableLines(const char* path, std::vector<std::string>* left_out) {
  const base::UniqueFile input = base::OpenRegularStream(path);
  if (!input) return {-1, std::make_shared<EMAIL_ENTRIES>()};
  auto entries = std::make_shared<EMAIL_ENTRIES>();
  int64_t count = 0;
  std::string line;
  for (int number = 1; NextLine(input.get(), line); ++number) {
    const alarms::RecipientLine parsed = alarms::ParseRecipient(line);
    if (parsed.blank) continue;
    if (parsed.fault == nullptr) {
      entries->Add(parsed.name, parsed.address);
      ++count;
    } else if (left_out->size() < LEFT_OUT_TOLD) {
      left_out->push_back(base::Format("%s line %d left out: %s", path, number, parsed.fault));
    }
  }
  return {count, entries};
}

CountedList ReadList(const char* path, std::vector<std::string>* left_out) {
  return m_mail_skip_bad != 0 ? ReadUsableLines(path, left_out) : ReadWords(path);
}

// Each line is told once, though the files may be read again every second.
void TellLeftOut(const EMAIL_LIST& list, const EMAIL_LIST& before) {
  for (const std::string& line : list.left_out) {
    const bool told =
        std::find(before.left_out.begin(), before.left_out.end(), line) != before.left_out.end();
    if (!told) TRACE(TRACE_WARN, "%s", line.c_str());
  }
}

}  // namespace

void EMAIL_ENTRIES::Add(std::string_view name, std::string_view address) {
  for (const std::string_view word : {name, address}) {
    begins_.push_back(text_.size());
    text_.append(word).push_back('\0');
  }
}

EMAIL_ENTRIES::Entry EMAIL_ENTRIES::At(int64_t index) const {
  if (index < 0 || static_cast<uint64_t>(index) >= begins_.size() / 2) return {"", ""};
  const size_t name = static_cast<size_t>(index) * 2;
  return {text_.c_str() + begins_[name], text_.c_str() + begins_[name + 1]};
}

EMAIL_LIST ReadEMailLists(const char* receiver_path, const char* reference_path, const char* blind_path) {
  EMAIL_LIST list;
  const CountedList receivers = ReadList(receiver_path, &list.left_out);
  const CountedList references = ReadList(reference_path, &list.left_out);
  const CountedList blinds = ReadList(blind_path, &list.left_out);
  list.receiver_count = receivers.count;
  list.receivers = receivers.entries;
  list.reference_count = references.count;
  list.references = references.entries;
  list.blind_count = blinds.count;
  list.blinds = blinds.entries;
  return list;
}

int GetEMailList(const char* receiver_path, const char* reference_path, const char* blind_path) {
  for (const char* path : {receiver_path, reference_path, blind_path}) CreateMissing(path);
  try {
    const EMAIL_LIST list = ReadEMailLists(receiver_path, reference_path, blind_path);
    TellLeftOut(list, *gEmailLists.Get());
    for (const char* path : {receiver_path, reference_path, blind_path}) alarms::TellBadRecipients(path);
    gEmailLists.Set(list);
    TRACE(TRACE_INFO, "Receiver Cnt [ %" PRId64 " ] Reference Cnt [ %" PRId64 " ] Blind Cnt [ %" PRId64 " ]",
          list.receiver_count, list.reference_count, list.blind_count);
    return 1;
  } catch (const std::bad_alloc&) {
    return -1;
  }
}

int64_t GetTotalLine(const char* path) {
  return base::CountNewlines(path);
}

std::shared_ptr<const EMAIL_ENTRIES> GetMailInfo(const char* path, int64_t count) {
  auto entries = std::make_shared<EMAIL_ENTRIES>();
  const base::UniqueFile input = base::OpenRegularStream(path);
  std::string name;
  std::string address;
  for (int64_t read = 0; input && read < count && NextWord(input.get(), name); ++read) {
    NextWord(input.get(), address);
    entries->Add(name, address);
  }
  return entries;
}

int EMailListFree(EMAIL_LIST list) {
  list = EMAIL_LIST();
  return 0;
}

bool LoadRecipients() {
  if (GetEMailList(m_receiver_email, m_reference_email, m_blind_email) == 1) return true;
  TRACE(TRACE_ERROR, "DunraSTT_Aadmin Email Setting");
  return false;
}

namespace alarms {
namespace {

using notices::Notice;

constexpr size_t LOOKED_AT = size_t{256} * 1024;  // of a file
constexpr size_t WORDS = 1000;                    // a notice shows fewer

}  // namespace

void TellBadRecipients(const char* path) {
  if (!notices::On() || m_send_email_used == 0) return;
  size_t size = 0;
  const base::UniqueFd file = base::OpenRegular(path, &size);
  if (!file.Valid()) {
    const int error = errno;
    notices::Tell<Notice::BAD_RECIPIENTS>(path, std::string("cannot be read: ") + std::strerror(error));
    return;
  }
  std::string text(std::min(size, LOOKED_AT), '\0');
  text.resize(base::ReadUpTo(file.Get(), text.data(), text.size()));
  // A line that the limit cuts is not judged.
  if (size > LOOKED_AT) text.resize(text.rfind('\n') + 1);
  const std::string words = BadLineWords(text, m_mail_skip_bad != 0);
  if (!words.empty()) notices::Tell<Notice::BAD_RECIPIENTS>(path, words);
}

std::string BadLineWords(std::string_view text, bool byLine) {
  std::string faults;
  size_t count = 0;
  for (size_t number = 1; !text.empty(); ++number) {
    const size_t end = text.find('\n');
    const bool ended = end != std::string_view::npos;
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(ended ? end + 1 : text.size());
    const RecipientLine parsed = byLine ? ParseRecipient(line) : RecipientLine{};
    const char* const fault = !byLine ? FirstFault(FaultsOf(WordsOf(line), ended)) : parsed.blank ? nullptr : parsed.fault;
    if (fault == nullptr) continue;
    ++count;
    if (faults.size() < WORDS)
      faults += base::Format("%sline %zu: %s", faults.empty() ? "" : "; ", number, fault);
  }
  return count == 0 ? ""
                    : base::Format("has %zu %s that cannot be used: ", count, count == 1 ? "line" : "lines") +
                          faults;
}

}  // namespace alarms
