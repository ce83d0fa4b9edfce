// A pause holds restarts: for how long still, who said so, why.
#ifndef CTL_PAUSE_H
#define CTL_PAUSE_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "ctl/clock.h"
#include "ctl/record_folder.h"

namespace ctl {

inline constexpr int64_t SHORTEST_PAUSE = 60;
inline constexpr int64_t LONGEST_PAUSE = 86'400;

struct Pause {
  int64_t seconds_left = 0;
  time_t until = 0;  // on the wall's clock as it stands now
  std::string by;    // UTF-8
  std::string reason;
};

// The pause in force; nothing when there is none: none was set, it has ended, the host was booted since, or
// the file is not one that the tool has written. For `start` and for every status.
std::optional<Pause> ReadPause(const RecordFolder& folder, const Moment& now);
// The same from the file's text.
std::optional<Pause> ParsePause(const std::string& text, const Moment& now);
// "paused by kim until 05:10 (2 h left): new model".
std::string PauseWords(const Pause& pause);

// Sets one, in place of any other: 0, or -1 with errno.
int WritePause(const RecordFolder& folder, const Moment& now, int64_t seconds, const std::string& by,
               const std::string& reason);
// 1 when one was there, 0 when not, -1 with errno.
int RemovePause(const RecordFolder& folder);

}  // namespace ctl

#endif
