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
constexpr size_t JUDGED_OF_RECIPIENTS = size_t{256} * 1024;  // bytes of a file that is read by the word
constexpr size_t BAD_RECIPIENTS_KEPT = 1000;                 // bytes; a notice shows fewer

// The next word between white space; false at the end of the file.
bool NextRecipientWord(FILE* recipients_file, std::string& recipients_word) {
  recipients_word.clear();
  int byte = getc_unlocked(recipients_file);
  while (byte != EOF && std::isspace(byte)) byte = getc_unlocked(recipients_file);
  if (byte == EOF) return false;
  for (; byte != EOF && !std::isspace(byte); byte = getc_unlocked(recipients_file))
    if (recipients_word.size() < EMAIL_WORD) recipients_word.push_back(static_cast<char>(byte));
  return true;
}

void CreateRecipientFile(const char* recipients_path) {
  if (::access(recipients_path, F_OK) == 0) return;
  // Not truncated: somebody else may write it at this moment.
  const base::UniqueFd new_recipients_file(
      ::open(recipients_path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666));
}

// The next line without its newline, cut to EMAIL_WORD bytes; false at the end of the file.
bool NextRecipientLine(FILE* recipients_file, std::string& recipients_line) {
  recipients_line.clear();
  int byte = getc_unlocked(recipients_file);
  if (byte == EOF) return false;
  for (; byte != EOF && byte != '\n'; byte = getc_unlocked(recipients_file))
    if (recipients_line.size() < EMAIL_WORD) recipients_line.push_back(static_cast<char>(byte));
  return true;
}

// One list and its count, as in EMAIL_LIST.
struct CountedRecipients {
  int64_t count;
  std::shared_ptr<const EMAIL_ENTRIES> entries;
};

// The first count recipients of a stream, read by the word.
std::shared_ptr<const EMAIL_ENTRIES> TakeRecipientWords(FILE* recipients_file, int64_t count) {
  auto entries = std::make_shared<EMAIL_ENTRIES>();
  std::string email_name;
  std::string email_address;
  for (int64_t recipients_read = 0; recipients_file != nullptr && recipients_read < count &&
                                    NextRecipientWord(recipients_file, email_name);
       ++recipients_read) {
    NextRecipientWord(recipients_file, email_address);
    entries->Add(email_name, email_address);
  }
  return entries;
}

// Judges the lines of a stream that is read by the word, from its beginning.
void JudgeRecipientLines(FILE* recipients_file, alarms::BadRecipientLines* bad_recipients) {
  std::rewind(recipients_file);
  std::string recipients_text(JUDGED_OF_RECIPIENTS + 1, '\0');
  recipients_text.resize(std::fread(recipients_text.data(), 1, recipients_text.size(), recipients_file));
  // A line that the limit cuts is not judged.
  if (recipients_text.size() > JUDGED_OF_RECIPIENTS)
    recipients_text.resize(recipients_text.rfind('\n', JUDGED_OF_RECIPIENTS - 1) + 1);
  bad_recipients->AddWordLines(recipients_text);
}

// recipients_notice may be null, as may be those below.
CountedRecipients ReadRecipientWords(const char* recipients_path,
                                     alarms::RecipientListNotice* recipients_notice) {
  const int64_t count = GetTotalLine(recipients_path);
  const base::UniqueFile recipients_file = base::OpenRegularStream(recipients_path);
  const int recipients_error = errno;
  CountedRecipients list = {count, TakeRecipientWords(recipients_file.get(), count)};
  if (recipients_notice != nullptr && recipients_file)
    JudgeRecipientLines(recipients_file.get(), &recipients_notice->bad);
  if (recipients_notice != nullptr && !recipients_file) recipients_notice->error = recipients_error;
  return list;
}

CountedRecipients ReadUsableRecipients(const char* recipients_path, std::vector<std::string>* left_out,
                                       alarms::RecipientListNotice* recipients_notice) {
  auto entries = std::make_shared<EMAIL_ENTRIES>();
  const base::UniqueFile recipients_file = base::OpenRegularStream(recipients_path);
  if (!recipients_file) {
    if (recipients_notice != nullptr) recipients_notice->error = errno;
    return {-1, entries};
  }
  int64_t count = 0;
  std::string recipients_line;
  for (size_t line_number = 1; NextRecipientLine(recipients_file.get(), recipients_line); ++line_number) {
    const alarms::RecipientLine recipient = alarms::ParseRecipient(recipients_line);
    if (recipient.blank) continue;
    if (recipient.fault == nullptr) {
      entries->Add(recipient.name, recipient.address);
      ++count;
      continue;
    }
    if (left_out->size() < LEFT_OUT_RECIPIENTS_TOLD)
      left_out->push_back(
          base::Format("%s line %zu left out: %s", recipients_path, line_number, recipient.fault));
    if (recipients_notice != nullptr) recipients_notice->bad.Add(line_number, recipient.fault);
  }
  return {count, entries};
}

CountedRecipients ReadRecipientList(const char* recipients_path, std::vector<std::string>* left_out,
                                    alarms::RecipientListNotice* recipients_notice) {
  return m_mail_skip_bad != 0 ? ReadUsableRecipients(recipients_path, left_out, recipients_notice)
                              : ReadRecipientWords(recipients_path, recipients_notice);
}

EMAIL_LIST ReadRecipientLists(const std::array<const char*, 3>& recipient_paths,
                              std::array<alarms::RecipientListNotice, 3>* recipients_found) {
  const auto recipients_notice = [recipients_found](size_t file) {
    return recipients_found == nullptr ? nullptr : &recipients_found->at(file);
  };
  EMAIL_LIST recipients;
  const CountedRecipients receivers =
      ReadRecipientList(recipient_paths[0], &recipients.left_out, recipients_notice(0));
  const CountedRecipients references =
      ReadRecipientList(recipient_paths[1], &recipients.left_out, recipients_notice(1));
  const CountedRecipients blinds =
      ReadRecipientList(recipient_paths[2], &recipients.left_out, recipients_notice(2));
  recipients.receiver_count = receivers.count;
  recipients.receivers = receivers.entries;
  recipients.reference_count = references.count;
  recipients.references = references.entries;
  recipients.blind_count = blinds.count;
  recipients.blinds = blinds.entries;
  return recipients;
}

// Each line is told once, though the files may be read again every second.
void TellLeftOutRecipients(const EMAIL_LIST& recipients, const EMAIL_LIST& recipients_before) {
  for (const std::string& left_out_recipient : recipients.left_out) {
    const bool recipient_told =
        std::find(recipients_before.left_out.begin(), recipients_before.left_out.end(), left_out_recipient) !=
        recipients_before.left_out.end();
    if (!recipient_told) TRACE(TRACE_WARN, "%s", left_out_recipient.c_str());
  }
}

void TellRecipientNotice(const char* recipients_path, const alarms::RecipientListNotice& recipients_found) {
  const std::string recipients_fault =
      recipients_found.error == 0 ? recipients_found.bad.Words()
                                  : std::string("cannot be read: ") + std::strerror(recipients_found.error);
  if (!recipients_fault.empty())
    notices::Tell<notices::Notice::BAD_RECIPIENTS>(recipients_path, recipients_fault);
}

}  // namespace

void EMAIL_ENTRIES::Add(std::string_view email_name, std::string_view email_address) {
  for (const std::string_view recipient_text : {email_name, email_address}) {
    recipient_begins_.push_back(recipient_texts_.size());
    recipient_texts_.append(recipient_text).push_back('\0');
  }
}

EMAIL_ENTRIES::Entry EMAIL_ENTRIES::At(int64_t index) const {
  if (index < 0 || static_cast<uint64_t>(index) >= recipient_begins_.size() / 2) return {"", ""};
  const size_t recipient_name = static_cast<size_t>(index) * 2;
  return {recipient_texts_.c_str() + recipient_begins_[recipient_name],
          recipient_texts_.c_str() + recipient_begins_[recipient_name + 1]};
}

EMAIL_LIST ReadEMailLists(const char* receiver_path, const char* reference_path, const char* blind_path) {
  return ReadRecipientLists({receiver_path, reference_path, blind_path}, nullptr);
}

int GetEMailList(const char* receiver_path, const char* reference_path, const char* blind_path) {
  const std::array<const char*, 3> recipient_paths = {receiver_path, reference_path, blind_path};
  for (const char* recipients_path : recipient_paths) CreateRecipientFile(recipients_path);
  try {
    // Without a journal, and while no mail is sent, no line is judged.
    const bool recipients_judged = notices::On() && m_send_email_used != 0;
    std::array<alarms::RecipientListNotice, 3> recipients_found;
    const EMAIL_LIST recipients =
        ReadRecipientLists(recipient_paths, recipients_judged ? &recipients_found : nullptr);
    TellLeftOutRecipients(recipients, *gEmailLists.Get());
    for (size_t file = 0; recipients_judged && file < recipient_paths.size(); ++file)
      TellRecipientNotice(recipient_paths.at(file), recipients_found.at(file));
    gEmailLists.Set(recipients);
    TRACE(TRACE_INFO, "Receiver Cnt [ %" PRId64 " ] Reference Cnt [ %" PRId64 " ] Blind Cnt [ %" PRId64 " ]",
          recipients.receiver_count, recipients.reference_count, recipients.blind_count);
    return 1;
  } catch (const std::bad_alloc&) {
    return -1;
  }
}

std::shared_ptr<const EMAIL_ENTRIES> GetMailInfo(const char* recipients_path, int64_t count) {
  const base::UniqueFile recipients_file = base::OpenRegularStream(recipients_path);
  return TakeRecipientWords(recipients_file.get(), count);
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

void BadRecipientLines::Add(size_t line_number, const char* recipient_fault) {
  ++bad_recipients_;
  if (bad_recipient_words_.size() < BAD_RECIPIENTS_KEPT)
    bad_recipient_words_ += base::Format("%sline %zu: %s", bad_recipient_words_.empty() ? "" : "; ",
                                         line_number, recipient_fault);
}

void BadRecipientLines::AddWordLines(std::string_view recipients_text) {
  for (size_t line_number = 1; !recipients_text.empty(); ++line_number) {
    const size_t recipient_end = recipients_text.find('\n');
    const bool recipient_ended = recipient_end != std::string_view::npos;
    const char* const recipient_fault = FirstRecipientWordFault(
        RecipientWordFaultsOf(RecipientWords(recipients_text.substr(0, recipient_end)), recipient_ended));
    if (recipient_fault != nullptr) Add(line_number, recipient_fault);
    recipients_text.remove_prefix(recipient_ended ? recipient_end + 1 : recipients_text.size());
  }
}

std::string BadRecipientLines::Words() const {
  if (bad_recipients_ == 0) return {};
  return base::Format("has %zu %s that cannot be used: ", bad_recipients_,
                      bad_recipients_ == 1 ? "line" : "lines") +
         bad_recipient_words_;
}

}  // namespace alarms
