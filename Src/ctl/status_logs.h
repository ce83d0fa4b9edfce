// Reads the agent's logs: pure functions of their texts.
#ifndef CTL_STATUS_LOGS_H
#define CTL_STATUS_LOGS_H

#include <optional>
#include <string>
#include <string_view>

#include "ctl/status_picture.h"

namespace ctl {

// A line of a trace log. The parts point into the line.
struct TraceLine {
  std::string_view stamp;  // "2026/11/21 03:14:07"
  std::string_view tag;    // "ERROR", "INFO"; empty in the hang log
  std::string_view message;
};
// Returns nothing for a text that is no such line or is cut.
std::optional<TraceLine> ParseTraceLine(std::string_view line);
// The moment of a stamp in local time; 0 when it is no stamp.
time_t StampTime(std::string_view stamp);

// Adds the text of a main log to the picture; call it for the oldest log first. process is PROC_NAME.
void AddMainLog(std::string_view text, const std::string& process, MainLogPicture* picture);
// The same for a hang log.
void AddHangLog(std::string_view text, std::optional<HangPicture>* picture);
// The failure that the log of a management server ends with. Returns nothing when its last report was taken
// or is under way. Needs a log of level 3 or above: lower levels do not show successes.
std::optional<Undelivered> ServerFailure(std::string_view text, const std::string& destination);

}  // namespace ctl

#endif
