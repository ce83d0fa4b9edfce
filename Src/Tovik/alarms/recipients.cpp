#include "Tovik/alarms/recipients.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
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
#include "base/regular_file.h"
#include "base/unique_handles.h"

base::SharedRecord<EMAIL_LIST> gEmailLists;

namespace {

constexpr size_t LEFT_OUT_RECIPIENTS_TOLD = 100;
constexpr size_t JUDGED_OF_RECIPIENT_FILE = size_t{256} * 1024;  // bytes of a file that is read by the word
constexpr size_t BAD_LINES_KEPT = 1000;                          // bytes; a notice shows fewer

// The next word between white space; false at the end of the file.
bool NextRecipientWord(FILE* recipient_file, std::string& word) {
  word.clear();
  int byte = getc_unlocked(recipient_file);
  while (byte != EOF && std::isspace(byte)) byte = getc_unlocked(recipient_file);
  if (byte == EOF) return false;
  for (; byte != EOF && !std::isspace(byte); byte = getc_unlocked(recipient_file))
    if (word.size() < EMAIL_WORD) word.push_back(static_cast<char>(byte));
  return true;
}

void CreateRecipientFile(const char* path) {
  if (::access(path, F_OK) == 0) return;
  // Not truncated: somebody else may write it at this moment.
  const base::UniqueFd new_recipient_file(::open(path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666));
}

// The next line without its newline, cut to EMAIL_WORD bytes; false at the end of the file.
bool NextRecipientLine(FILE* recipient_file, std::string& line) {
  line.clear();
  int byte = getc_unlocked(recipient_file);
  if (byte == EOF) return false;
  for (; byte != EOF && byte != '\n'; byte = getc_unlocked(recipient_file))
    if (line.size() < EMAIL_WORD) line.push_back(static_cast<char>(byte));
  return true;
}

// One list and its count, as in EMAIL_LIST.
struct CountedRecipients {
  int64_t count;
  std::shared_ptr<const EMAIL_ENTRIES> entries;
};

// The first count recipients of a stream, read by the word.
std::shared_ptr<const EMAIL_ENTRIES> TakeRecipientWords(FILE* recipient_file, int64_t count) {
  auto entries = std::make_shared<EMAIL_ENTRIES>();
  std::string name;
  std::string address;
  for (int64_t read = 0; recipient_file != nullptr && read < count && NextRecipientWord(recipient_file, name);
       ++read) {
    NextRecipientWord(recipient_file, address);
    entries->Add(name, address);
  }
  return entries;
}

// Judges the lines of a stream that is read by the word, from its beginning.
void JudgeRecipientLines(FILE* recipient_file, alarms::BadRecipientLines* bad) {
  std::rewind(recipient_file);
  std::string text(JUDGED_OF_RECIPIENT_FILE + 1, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), recipient_file));
  // A line that the limit cuts is not judged.
  if (text.size() > JUDGED_OF_RECIPIENT_FILE) text.resize(text.rfind('\n', JUDGED_OF_RECIPIENT_FILE - 1) + 1);
  bad->AddWordLines(text);
}

// notice may be null, as may be those below.
CountedRecipients ReadRecipientWords(const char* path, alarms::RecipientListNotice* notice) {
  const int64_t count = GetTotalLine(path);
  const base::UniqueFile recipient_file = base::OpenRegularStream(path);
  const int error = errno;
  CountedRecipients list = {count, TakeRecipientWords(recipient_file.get(), count)};
  if (notice != nullptr && recipient_file) JudgeRecipientLines(recipient_file.get(), &notice->bad);
  if (notice != nullptr && !recipient_file) notice->error = error;
  return list;
}

CountedRecipients ReadUsableRecipients(const char* path, std::vector<std::string>* left_out,
                                       alarms::RecipientListNotice* notice) {
  auto entries = std::make_shared<EMAIL_ENTRIES>();
  const base::UniqueFile recipient_file = base::OpenRegularStream(path);
  if (!recipient_file) {
    if (notice != nullptr) notice->error = errno;
    return {-1, entries};
  }
  int64_t count = 0;
  std::string line;
  for (size_t number = 1; NextRecipientLine(recipient_file.get(), line); ++number) {
    const alarms::RecipientLine recipient = alarms::ParseRecipient(line);
    if (recipient.blank) continue;
    if (recipient.fault == nullptr) {
      entries->Add(recipient.name, recipient.address);
      ++count;
      continue;
    }
    if (left_out->size() < LEFT_OUT_RECIPIENTS_TOLD)
      left_out->push_back(base::Format("%s line %zu left out: %s", path, number, recipient.fault));
    if (notice != nullptr) notice->bad.Add(number, recipient.fault);
  }
  return {count, entries};
}

CountedRecipients ReadRecipientList(const char* path, std::vector<std::string>* left_out,
                                    alarms::RecipientListNotice* notice) {
  return m_mail_skip_bad != 0 ? ReadUsableRecipients(path, left_out, notice)
                              : ReadRecipientWords(path, notice);
}

EMAIL_LIST ReadRecipientLists(const std::array<const char*, 3>& paths,
                              std::array<alarms::RecipientListNotice, 3>* found) {
  const auto notice = [found](size_t file) { return found == nullptr ? nullptr : &found->at(file); };
  EMAIL_LIST list;
  const CountedRecipients receivers = ReadRecipientList(paths[0], &list.left_out, notice(0));
  const CountedRecipients references = ReadRecipientList(paths[1], &list.left_out, notice(1));
  const CountedRecipients blinds = ReadRecipientList(paths[2], &list.left_out, notice(2));
  list.receiver_count = receivers.count;
  list.receivers = receivers.entries;
  list.reference_count = references.count;
  list.references = references.entries;
  list.blind_count = blinds.count;
  list.blinds = blinds.entries;
  return list;
}

// Each line is told once, though the files may be read again every second.
void TellLeftOut(const EMAIL_LIST& list, const EMAIL_LIST& before) {
  for (const std::string& line : list.left_out) {
    const bool told =
        std::find(before.left_out.begin(), before.left_out.end(), line) != before.left_out.end();
    if (!told) TRACE(TRACE_WARN, "%s", line.c_str());
  }
}

void TellRecipientNotice(const char* path, const alarms::RecipientListNotice& found) {
  const std::string file_fault =
      found.error == 0 ? found.bad.Words() : std::string("cannot be read: ") + std::strerror(found.error);
  if (!file_fault.empty()) notices::Tell<notices::Notice::BAD_RECIPIENTS>(path, file_fault);
}

}  // namespace

void EMAIL_ENTRIES::Add(std::string_view name, std::string_view address) {
  for (const std::string_view word : {name, address}) {
    entry_begins_.push_back(entry_texts_.size());
    entry_texts_.append(word).push_back('\0');
  }
}

EMAIL_ENTRIES::Entry EMAIL_ENTRIES::At(int64_t index) const {
  if (index < 0 || static_cast<uint64_t>(index) >= entry_begins_.size() / 2) return {"", ""};
  const size_t name = static_cast<size_t>(index) * 2;
  return {entry_texts_.c_str() + entry_begins_[name], entry_texts_.c_str() + entry_begins_[name + 1]};
}

EMAIL_LIST ReadEMailLists(const char* receiver_path, const char* reference_path, const char* blind_path) {
  return ReadRecipientLists({receiver_path, reference_path, blind_path}, nullptr);
}

int GetEMailList(const char* receiver_path, const char* reference_path, const char* blind_path) {
  const std::array<const char*, 3> paths = {receiver_path, reference_path, blind_path};
  for (const char* path : paths) CreateRecipientFile(path);
  try {
    // Without a journal, and while no mail is sent, no line is judged.
    const bool judged = notices::On() && m_send_email_used != 0;
    std::array<alarms::RecipientListNotice, 3> found;
    const EMAIL_LIST list = ReadRecipientLists(paths, judged ? &found : nullptr);
    TellLeftOut(list, *gEmailLists.Get());
    for (size_t file = 0; judged && file < paths.size(); ++file)
      TellRecipientNotice(paths.at(file), found.at(file));
    gEmailLists.Set(list);
    TRACE(TRACE_INFO, "Receiver Cnt [ %" PRId64 " ] Reference Cnt [ %" PRId64 " ] Blind Cnt [ %" PRId64 " ]",
          list.receiver_count, list.reference_count, list.blind_count);
    return 1;
  } catch (const std::bad_alloc&) {
    return -1;
  }
}

std::shared_ptr<const EMAIL_ENTRIES> GetMailInfo(const char* path, int64_t count) {
  const base::UniqueFile recipient_file = base::OpenRegularStream(path);
  return TakeRecipientWords(recipient_file.get(), count);
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

void BadRecipientLines::Add(size_t number, const char* fault) {
  ++bad_lines_;
  if (bad_line_words_.size() < BAD_LINES_KEPT)
    bad_line_words_ += base::Format("%sline %zu: %s", bad_line_words_.empty() ? "" : "; ", number, fault);
}

void BadRecipientLines::AddWordLines(std::string_view text) {
  for (size_t number = 1; !text.empty(); ++number) {
    const size_t end = text.find('\n');
    const bool ended = end != std::string_view::npos;
    const char* const fault =
        FirstWordLineFault(WordLineFaultsOf(RecipientWords(text.substr(0, end)), ended));
    if (fault != nullptr) Add(number, fault);
    text.remove_prefix(ended ? end + 1 : text.size());
  }
}

std::string BadRecipientLines::Words() const {
  if (bad_lines_ == 0) return {};
  return base::Format("has %zu %s that cannot be used: ", bad_lines_, bad_lines_ == 1 ? "line" : "lines") +
         bad_line_words_;
}

}  // namespace alarms
