// Notices: a plain sentence for the administrator about what went wrong, with its priority (sd-daemon(3)), on
// standard error, where that is the service manager's journal; elsewhere nothing.
//
// The same notice is written again only when its text changes or an hour has passed, with a count of those
// held back meanwhile. Whoever finds something tells all of it each time; nobody else has to count.
#ifndef TOVIK_NOTICES_NOTICES_H
#define TOVIK_NOTICES_NOTICES_H

#include <sys/types.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
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

enum class Notice {
  NO_CONFIGURATION,
  BAD_KEY,
  ALREADY_RUNNING,
  NO_START,
  ENGINE_DEAD,
  NAME_MISSING,
  PORT_SILENT,
  SCRIPT_DONE,
  SCRIPT_FAILED,
  SCRIPT_LASTS,
  CHANNELS_UNWATCHED,
  MAIL_LOST,
  MAIL_REFUSED,
  MAIL_WITHOUT_FILE,
  POST_LOST,
  REPORT_LOST,
  BAD_RECIPIENTS
};

// sd-daemon(3). An error is something that nobody watches, starts or tells any more; a warning what may
// become one.
inline constexpr int ERROR = 3;
inline constexpr int WARNING = 4;
inline constexpr int NOTICE = 5;

struct Row {
  Notice notice;
  int priority;
  const char* sentence;
};
// clang-format off
inline constexpr Row ROWS[] = {
    {Notice::NO_CONFIGURATION, ERROR, "The agent does not start: the configuration {} cannot be read: {}"},
    {Notice::BAD_KEY, ERROR, "The agent does not start: {} in {} {}"},
    {Notice::ALREADY_RUNNING, ERROR, "The agent does not start: process {} bears its name {} (WATCHDOG_NAME) already"},
    {Notice::NO_START, ERROR, "The agent does not start: {}"},
    {Notice::ENGINE_DEAD, ERROR, "The engine is dead: no process is named {} (PROC_NAME); {} is run"},
    {Notice::NAME_MISSING, ERROR, "No process is named {} (PROC_NAME), but port {} (ASR_PORT) listens: the name is "
        "wrong, or another program has the port; {} is run"},
    {Notice::PORT_SILENT, WARNING, "Process {~} is named {} (PROC_NAME), but port {} (ASR_PORT) {}: name or port may "
        "be wrong, or the engine does not come up"},
    {Notice::SCRIPT_DONE, NOTICE, "The start script {} ended with status 0 after {~} s"},
    {Notice::SCRIPT_FAILED, ERROR, "The start script {} {} after {~} s"},
    {Notice::SCRIPT_LASTS, ERROR, "The start script {} has not come back after {} s: until it does, the engine and "
        "its thresholds are not checked; it has to start the engine in the background"},
    {Notice::CHANNELS_UNWATCHED, WARNING, "The channels are not watched: port {} (ASR_PORT) did not answer {}"},
    {Notice::MAIL_LOST, ERROR, "The mail \"{~}\" was not delivered by {}: {}"},
    {Notice::MAIL_REFUSED, ERROR, "The mail server {} refused recipients of a mail that others got: {}"},
    {Notice::MAIL_WITHOUT_FILE, WARNING, "Mails go out without a file: {}"},
    {Notice::POST_LOST, ERROR, "The post \"{~}\" was not delivered to {}: {}"},
    {Notice::REPORT_LOST, ERROR, "A report was not delivered to the management server {}: {}"},
    {Notice::BAD_RECIPIENTS, ERROR, "The recipients' file {} {}"},
};
// clang-format on

constexpr const Row& RowOf(Notice notice) {
  return *std::find_if(std::begin(ROWS), std::end(ROWS),
                       [notice](const Row& row) { return row.notice == notice; });
}

// Whether there is a journal to write to. What only a notice needs to know is not looked for without.
bool On();

// Looks whether standard error is the journal. At the start, and when descriptor 2 has become another.
void LookForJournal();

void TellRow(const Row& row, std::initializer_list<std::string_view> texts);

// Writes a notice, if it is due. Texts as they came, in code page 949 or UTF-8. Any thread; waits for a slow
// journal no longer than base/lossy_stream.h says. Throws nothing.
template <Notice NOTICE, typename... Texts>
void Tell(const Texts&... texts) {
  static_assert(Places(RowOf(NOTICE).sentence) == sizeof...(Texts));
  if (On()) TellRow(RowOf(NOTICE), {std::string_view(texts)...});
}

// Pure functions of texts and of a time follow: what a notice says and when it is said again. Without memory
// they throw std::bad_alloc.

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
