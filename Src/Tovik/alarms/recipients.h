// The recipients of alarm mails: three lists, kept in three files.
//
// A recipient file is text in code page 949, a recipient per line: the display name, white space, the
// address. Names hold no blanks. As many recipients are read as the file has newlines, so a last line without
// one is lost, and a blank line makes an empty recipient at the end of the list. With MAIL_SKIP_BAD each line
// is read by itself (recipient_line.h), and one that cannot be used is left out and traced.
//
// The lists are read at start-up, and again when a file has changed (recipients_reload.h).
// With a journal, the administrator is told of a file whose mails will not go where he believes.
#ifndef TOVIK_ALARMS_RECIPIENTS_H
#define TOVIK_ALARMS_RECIPIENTS_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/shared_record.h"

// A name or an address keeps at most this many bytes; the rest of a longer word is dropped.
inline constexpr size_t EMAIL_WORD = 4095;

// The recipients of one file. Its memory grows with the words read, not with the number of lines.
class EMAIL_ENTRIES {
 public:
  struct Entry {
    const char* name;
    const char* address;
  };
  void Add(std::string_view email_name, std::string_view email_address);
  // The recipient at an index; empty texts beyond the last one. The pointers are valid as long as the list.
  Entry At(int64_t index) const;

 private:
  std::string recipient_texts_;           // name NUL address NUL ...
  std::vector<size_t> recipient_begins_;  // of name and address by turns
};

// The three lists. A count is -1 when the file could not be opened; a list that was never read is null and
// its count 0 or less.
struct EMAIL_LIST {
  int64_t receiver_count = 0;
  std::shared_ptr<const EMAIL_ENTRIES> receivers;
  int64_t reference_count = 0;
  std::shared_ptr<const EMAIL_ENTRIES> references;
  int64_t blind_count = 0;
  std::shared_ptr<const EMAIL_ENTRIES> blinds;
  std::vector<std::string> left_out;  // with MAIL_SKIP_BAD: file, number and fault of the first 100 bad lines
};

// The lists in use. They are replaced as a whole: a mail in progress ends with the lists it began with.
extern base::SharedRecord<EMAIL_LIST> gEmailLists;

// Reads the three files into gEmailLists. A file that does not exist is made first, empty. Returns 1; -1
// without memory, and then the lists stay as they were. Any thread.
[[nodiscard]] int GetEMailList(const char* receiver_path, const char* reference_path, const char* blind_path);

// The same lists, read and given back; no file is made. std::bad_alloc without memory.
EMAIL_LIST ReadEMailLists(const char* receiver_path, const char* reference_path, const char* blind_path);

// The first count recipients of a file. Recipients that the file lacks are empty texts; all are when it
// cannot be opened.
std::shared_ptr<const EMAIL_ENTRIES> GetMailInfo(const char* recipients_path, int64_t count);

// Releases the copy that it is given, as in EMailListFree(*gEmailLists.Get()). The lists in use stay until
// the next GetEMailList. Always returns 0.
int EMailListFree(EMAIL_LIST list);

// Calls GetEMailList with the configured files. Returns false when that failed, which is traced.
[[nodiscard]] bool LoadRecipients();

namespace alarms {

// The lines of a file that its list cannot use, in words.
class BadRecipientLines {
 public:
  void Add(size_t line_number, const char* recipient_fault);
  // Adds the bad ones of a text that is read by the word.
  void AddWordLines(std::string_view recipients_text);
  // "has 2 lines that cannot be used: line 3: no address; line 5: ..."; empty when all can.
  std::string Words() const;

 private:
  size_t bad_recipients_ = 0;
  std::string bad_recipient_words_;
};

// What reading a file found that is told to the administrator (notices/notices.h).
struct RecipientListNotice {
  int error = 0;  // errno of opening the recipient file
  BadRecipientLines bad;
};

}  // namespace alarms

#endif
