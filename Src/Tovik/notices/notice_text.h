// What a notice says and when it is said again. Pure functions of texts and of a time; the writing is in
// notices.h. Without memory they throw std::bad_alloc.
#ifndef TOVIK_NOTICES_NOTICE_TEXT_H
#define TOVIK_NOTICES_NOTICE_TEXT_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace notices {

// In a sentence, where a text stands: one that tells a notice from another, and one that does not (a time, a
// process id).
inline constexpr std::string_view TEXT = "{}";
inline constexpr std::string_view PASSING = "{~}";

// How many texts a sentence takes.
constexpr size_t Places(std::string_view sentence) {
  size_t places = 0;
  for (size_t at = 0; at < sentence.size(); ++at)
    if (sentence.substr(at).starts_with(TEXT) || sentence.substr(at).starts_with(PASSING)) ++places;
  return places;
}

// A text of a peer, a file or the configuration as a notice shows it: UTF-8 (code page 949 is converted, bad
// bytes become U+FFFD) on one line of at most 300 bytes, control characters and those that turn the direction
// of writing escaped; "..." ends one that was cut.
std::string Shown(std::string_view text);

struct Composed {
  std::string sentence;
  std::string sameness;  // equal for notices that say the same
};
// Puts the texts, each Shown, into a sentence.
Composed Compose(std::string_view sentence, std::span<const std::string_view> texts);

// Remembers what was told, and decides what is told again. Bounded; not for several threads at once.
class Repeats {
 public:
  // Seconds after which a notice is told again although it says the same.
  static constexpr int64_t PERIOD = 3600;
  // So many notices of a kind are told within that time, however their texts change.
  static constexpr size_t MOST = 16;

  // Whether a notice of this kind that says this is told now, on a clock in seconds that only goes on; then
  // how many were held back since: of the same text, or when there were too many different ones, of those.
  std::optional<int64_t> Due(int kind, const std::string& sameness, int64_t now);

 private:
  struct Told {
    std::string sameness;
    int64_t when;
    int64_t held;
  };
  struct Kind {
    std::vector<Told> told;
    int64_t crowded = 0;
  };
  std::map<int, Kind> kinds_;
};

// The line of a sentence: its priority as sd-daemon(3) writes it, and the count where there is one.
std::string Line(int priority, const std::string& sentence, int64_t held);

// Whether JOURNAL_STREAM (systemd.exec(5)) names the file of this device and inode.
bool NamesFile(std::string_view journal_stream, dev_t device, ino_t inode);

}  // namespace notices

#endif
