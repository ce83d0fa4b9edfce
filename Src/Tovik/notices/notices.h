// Notices: a plain sentence (notice_table.h) for the administrator about what went wrong, with its priority,
// on standard error, where that is the service manager's journal; elsewhere nothing.
//
// The same notice is written again only when its text changes or an hour has passed, with a count of those
// held back meanwhile. Whoever finds something tells all of it each time; nobody else has to count.
#ifndef TOVIK_NOTICES_NOTICES_H
#define TOVIK_NOTICES_NOTICES_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Tovik/notices/notice_table.h"

namespace notices {

// Whether there is a journal to write to. What only a notice needs to know is not looked for without.
bool On();

// Looks whether standard error is the journal. At the start, and when descriptor 2 has become another.
void LookForJournal();

void TellNoticeRow(const NoticeRow& row, std::initializer_list<std::string_view> texts);

// Writes a notice, if it is due. Texts as they came, in code page 949 or UTF-8. Any thread; waits for a slow
// journal no longer than base/lossy_stream.h says. Throws nothing.
template <Notice NOTICE, typename... Texts>
void Tell(const Texts&... notice_texts) {
  static_assert(NoticeTextPlaces(NoticeRowOf(NOTICE).sentence) == sizeof...(Texts));
  if (On()) TellNoticeRow(NoticeRowOf(NOTICE), {std::string_view(notice_texts)...});
}

// Pure functions of texts and of a time follow: what a notice says and when it is said again. Without memory
// they throw std::bad_alloc.

// A text of a peer, a file or the configuration as a notice shows it: UTF-8 (code page 949 is converted, bad
// bytes become U+FFFD) on one line of at most 300 bytes, control characters and those that turn the direction
// of writing escaped; "..." ends one that was cut.
std::string Shown(std::string_view notice_text);

struct ComposedNotice {
  std::string sentence;
  std::string sameness;  // equal for notices that say the same
};
// Puts the texts, each Shown, into a sentence.
ComposedNotice Compose(std::string_view sentence, std::span<const std::string_view> notice_texts);

// Remembers what was told, and decides what is told again. Bounded; not for several threads at once.
class Repeats {
 public:
  // Seconds after which a notice is told again although it says the same.
  static constexpr int64_t NOTICE_REPEAT_PERIOD = 3600;
  // So many notices of a kind are told within that time, however their texts change.
  static constexpr size_t MOST_NOTICES_OF_A_KIND = 16;

  // Whether a notice of this kind that says this is told now, on a clock in seconds that only goes on; then
  // how many were held back since: of the same text, or when there were too many different ones, of those.
  std::optional<int64_t> Due(int kind, const std::string& sameness, int64_t now);

 private:
  struct ToldNotice {
    std::string sameness;
    int64_t when;
    int64_t held;
  };
  struct NoticeKind {
    std::vector<ToldNotice> told;
    int64_t crowded = 0;
  };
  std::map<int, NoticeKind> notice_kinds_;
};

// The line of a sentence: its priority as sd-daemon(3) writes it, and the count where there is one.
std::string NoticeLine(int priority, const std::string& sentence, int64_t held);

// Whether JOURNAL_STREAM (systemd.exec(5)) names the file of this device and inode.
bool JournalStreamNames(std::string_view notice_stream, dev_t device, ino_t inode);

}  // namespace notices

#endif
