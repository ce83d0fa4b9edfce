// A pause holds restarts. It has an end, an author and a reason.
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
  time_t until = 0;  // wall time, by the clock as it is set now
  std::string by;    // UTF-8
  std::string reason;
};

// The pause in force. Returns nothing when none was set, it has ended, the host was rebooted since, or the
// file is not one that the tool wrote.
std::optional<Pause> ReadPause(const RecordFolder& folder, const Moment& now);
// The same from the file's text.
std::optional<Pause> ParsePause(const std::string& text, const Moment& now);
// "paused by kim until 05:10 (2 h left): new model".
std::string PauseWords(const Pause& pause);

// Sets a pause and replaces any other. seconds is SHORTEST_PAUSE to LONGEST_PAUSE; texts are UTF-8. Returns
// 0, or -1 with errno.
int WritePause(const RecordFolder& folder, const Moment& now, int64_t seconds, const std::string& by,
               const std::string& reason);
// Ends the pause. Returns 1 when there was one, 0 when there was none, -1 with errno.
int RemovePause(const RecordFolder& folder);

}  // namespace ctl

#endif
