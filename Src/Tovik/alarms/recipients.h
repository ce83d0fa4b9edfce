// The recipients of alarm mails: three lists, kept in three files.
//
// A recipient file is text in code page 949, a recipient per line: the display name, white space, the
// address. Names hold no blanks. As many recipients are read as the file has newlines, so a last line without
// one is lost, and a blank line makes an empty recipient at the end of the list. With MAIL_SKIP_BAD each line
// stands for itself (recipient_line.h): one that no mail can have as recipient is left out, and traced.
//
// The lists are read at start-up. From the first change of a file's time on they are read again at every
// look, once a second: the times of the start are what they are compared with.
#ifndef TOVIK_ALARMS_RECIPIENTS_H
#define TOVIK_ALARMS_RECIPIENTS_H

#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/shared_record.h"

// A name or an address keeps at most this many bytes; the rest of a longer word is dropped.
inline constexpr size_t EMAIL_WORD = 4095;

// The recipients of one file. Memory is as the words read, not as the count of lines.
class EMAIL_ENTRIES {
 public:
  struct Entry {
    const char* name;
    const char* address;
  };
  void Add(std::string_view name, std::string_view address);
  // The recipient at an index; empty texts behind the last one read. Valid as long as the list.
  Entry At(int64_t index) const;

 private:
  std::string text_;            // name NUL address NUL ...
  std::vector<size_t> begins_;  // of name and address by turns
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
  std::vector<std::string> left_out;  // lines, each with file, number and reason; the first hundred
};

// The lists in use. They are replaced as a whole: a mail in progress ends with those it began with.
extern base::SharedRecord<EMAIL_LIST> gEmailLists;

// Reads the three files into gEmailLists; one that does not exist is made first, empty. 1; -1 without memory,
// the lists then stay. Any thread.
[[nodiscard]] int GetEMailList(const char* receiver_path, const char* reference_path, const char* blind_path);

// The same lists, read and given back; no file is made. std::bad_alloc without memory.
EMAIL_LIST ReadEMailLists(const char* receiver_path, const char* reference_path, const char* blind_path);

// base::CountNewlines.
int64_t GetTotalLine(const char* path);

// The first count recipients of a file. Those that it lacks are empty; all, when it cannot be opened.
std::shared_ptr<const EMAIL_ENTRIES> GetMailInfo(const char* path, int64_t count);

// Lets go of a copy's lists: EMailListFree(*gEmailLists.Get()). The lists in use stay until the next
// GetEMailList. 0.
int EMailListFree(EMAIL_LIST list);

// GetEMailList of the configuration's files; false when that failed, which is traced.
[[nodiscard]] bool LoadRecipients();
// Keeps the files' times, 0 for one without, as those that a change is measured against.
void KeepRecipientTimes();
// Reads the lists again when one of the files is newer than its kept time; traces what it found.
void ReloadChangedRecipients();

// Seconds by which a file is newer than it was; 0 for a file without a time.
double NewerBy(std::optional<time_t> now, time_t before);
// A file's modification time, taken through local time and back; none when it cannot be examined.
std::optional<time_t> ModificationTime(const char* path);

#endif
