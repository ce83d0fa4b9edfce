// Alarms by e-mail: an HTML mail in one layout to the recipients of three files, and those lists.
//
// A recipient file is text in code page 949, a recipient per line: the display name, white space, the
// address. Names hold no blanks. As many recipients are read as the file has newlines, so a last line without
// one is lost, and a blank line makes an empty recipient at the end of the list.
#ifndef TOVIK_ALARMS_EMAIL_H
#define TOVIK_ALARMS_EMAIL_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/handover.h"

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
};

// The lists in use. They are replaced as a whole: a mail in progress ends with those it began with.
extern base::Handover<EMAIL_LIST> gEmailLists;

// Reads the three files into gEmailLists; one that does not exist is made first, empty. 1; -1 without memory,
// the lists then stay. Any thread.
int GetEMailList(const char* receiver_path, const char* reference_path, const char* blind_path);

// Newlines of a file up to its end or its first byte 0xFF; -1 when it cannot be opened. What is not a regular
// file has none.
int64_t GetTotalLine(const char* path);

// The first count recipients of a file. Those that it lacks are empty; all, when it cannot be opened.
std::shared_ptr<const EMAIL_ENTRIES> GetMailInfo(const char* path, int64_t count);

// Lets go of a copy's lists: EMailListFree(*gEmailLists.Get()). The lists in use stay until the next
// GetEMailList. 0.
int EMailListFree(EMAIL_LIST list);

// Mails an alarm through the server of the configuration to all recipients of gEmailLists and waits until it
// is accepted. The texts are in code page 949. title is the subject too, there as it is; label is the
// service's short name; message may be HTML, its newlines become "<br />"; all go into the HTML unescaped. A
// message that is too long for a body of 819,199 bytes of UTF-8 is cut at a character. kind is one of
// alarm_kind.h, another one has no picture. attachment_path names a file to attach, or is null.
//
// 1 when the server took the mail; -1 otherwise: the failure of the session is told on standard error, a text
// that does not convert to UTF-8 is traced at level 1 and nothing is sent.
//
// Any thread; blocks for the time-outs of the mail session (smtp.h), and once a stop is requested no longer
// than its grace.
int SendAlarmEmail(const char* title, uint32_t kind, const char* label, const char* message,
                   const char* attachment_path);

#endif
