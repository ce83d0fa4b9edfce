// What the agent's logs tell: functions of their texts.
#ifndef CTL_STATUS_LOGS_H
#define CTL_STATUS_LOGS_H

#include <optional>
#include <string>
#include <string_view>

#include "ctl/status_picture.h"

namespace ctl {

// A line of a trace log; its parts lie in the line.
struct TraceLine {
  std::string_view stamp;  // "2026/11/21 03:14:07"
  std::string_view tag;    // "ERROR", "INFO"; empty in the hang log
  std::string_view message;
};
// Nothing for what is none, or is cut.
std::optional<TraceLine> ParseTraceLine(std::string_view line);
// Local time; 0 for what is no such stamp.
time_t StampTime(std::string_view stamp);

// Takes the text of a main log, the older ones first. process is PROC_NAME.
void AddMainLog(std::string_view text, const std::string& process, MainLogPicture* picture);
// The same of a hang log.
void AddHangLog(std::string_view text, std::optional<HangPicture>* picture);
// The failure with which the log of a management server ends; nothing when its last report was taken or is
// under way. Of texts at level 3 and above: lower ones do not tell a success.
std::optional<Undelivered> ServerFailure(std::string_view text, const std::string& destination);

}  // namespace ctl

#endif
