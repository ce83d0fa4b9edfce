// Durations as people write and read them.
#ifndef CTL_DURATION_H
#define CTL_DURATION_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ctl {

// Parses "90s", "10m" or "24h", a whole number of at most nine digits with its unit, into seconds. Returns
// nothing for any other text.
std::optional<int64_t> ParseDuration(std::string_view text);

// In words, in the one or two largest units: "80 s", "6 min", "2 h 11 min", "3 d 4 h". Negative counts as 0.
std::string DurationWords(int64_t seconds);

}  // namespace ctl

#endif
